// libjpeg-turbo, whose errors jump.
#pragma once

#include <csetjmp>
#include <cstddef>
#include <cstdio>

#include <jpeglib.h>

struct ErrorManager : jpeg_error_mgr {
    jmp_buf jump;

    template <class Jpeg>
    explicit ErrorManager(Jpeg *lpJpeg) {
        lpJpeg->err = jpeg_std_error(this);
        error_exit = [](j_common_ptr lp) { longjmp(static_cast<ErrorManager *>(lp->err)->jump, 1); };
        output_message = [](j_common_ptr) {};
    }
};
