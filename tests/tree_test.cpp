// Rules of the tree that a compiler does not know.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace fs = std::filesystem;

// Calls lpfnVisit(path from the root of the tree, name between the brackets) for every "#include <...>" below
// a folder.
template <class Visitor>
int ForEachSystemInclude(const std::string &strFolder, Visitor visit) {
    int nFiles = 0;
    const fs::path root(TESSEL_SOURCE_DIR);
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(root / strFolder)) {
        if (entry.path().extension() != ".cpp" && entry.path().extension() != ".h")
            continue;
        ++nFiles;
        std::ifstream file(entry.path());
        for (std::string strLine; std::getline(file, strLine);) {
            if (strLine.starts_with("#include <"))
                visit(fs::relative(entry.path(), root).string(), strLine.substr(10, strLine.find('>') - 10));
        }
    }
    return nFiles;
}

}  // namespace

TEST(TreeTest, OnlyThePlatformLayerKnowsAnOperatingSystem) {
    for (const char *lpszFolder : {"src", "include"}) {
        const int nFiles =
            ForEachSystemInclude(lpszFolder, [&](const std::string &strFile, const std::string &strName) {
                // Headers of standard C++ have no dot in their names; those of a system have.
                const bool bStandard = strName.find('.') == std::string::npos || strName == "stdint.h";
                EXPECT_TRUE(strFile.starts_with("src/platform/posix/") || bStandard)
                    << strFile << " includes <" << strName << ">";
            });
        EXPECT_GT(nFiles, 1) << lpszFolder;
    }
}
