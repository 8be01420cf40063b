// libjpeg-turbo, whose errors jump. Its vector code, which rounds what does not fit into 16 bits in a way of its own, stays
// off, unless the first use in a thread asks for it.
#pragma once

#include <csetjmp>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <jpeglib.h>

class Input;

// A good file of the samples that an input asks for.
std::string MakeFile(Input *lpInput);

struct ErrorManager : jpeg_error_mgr {
    jmp_buf jump;

    template <class Jpeg>
    explicit ErrorManager(Jpeg *lpJpeg, bool bPlain = true) {
        setenv("JSIMD_FORCENONE", bPlain ? "1" : "0", 1);
        lpJpeg->err = jpeg_std_error(this);
        error_exit = [](j_common_ptr lp) { longjmp(static_cast<ErrorManager *>(lp->err)->jump, 1); };
        output_message = [](j_common_ptr) {};
    }
};
