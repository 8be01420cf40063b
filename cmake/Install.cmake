# cmake --install: the library, its headers, what pkg-config and find_package look for, the programs, the man pages.
# Everything follows prefix and DESTDIR and can be moved as a whole.
include(CMakePackageConfigHelpers)

install(TARGETS tessel EXPORT tesselTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES include/tessel.h include/tessel_host.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# The programs find the library from where they lie.
file(RELATIVE_PATH to_library ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
foreach(program tessel-shot tessel-view)
    if(TARGET ${program})
        set_target_properties(${program} PROPERTIES INSTALL_RPATH "$ORIGIN/${to_library}")
        install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    endif()
endforeach()

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/tessel)
install(EXPORT tesselTargets NAMESPACE tessel:: DESTINATION ${package_folder} FILE tesselConfig.cmake)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/tesselConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/tesselConfigVersion.cmake DESTINATION ${package_folder})

# Made at install time, when the prefix is known for sure: it may be given there.
install(CODE "
    set(PROJECT_DESCRIPTION \"${PROJECT_DESCRIPTION}\")
    set(PROJECT_VERSION ${PROJECT_VERSION})
    set(CMAKE_INSTALL_LIBDIR ${CMAKE_INSTALL_LIBDIR})
    set(CMAKE_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR})
    configure_file(${CMAKE_CURRENT_SOURCE_DIR}/cmake/tessel.pc.in ${CMAKE_BINARY_DIR}/tessel.pc @ONLY)")
install(FILES ${CMAKE_BINARY_DIR}/tessel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(FILES docs/man/tessel-shot.1 docs/man/tessel-view.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES docs/man/tessel.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)
