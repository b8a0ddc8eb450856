#pragma once
// libjpeg reports a fatal error by calling error_exit, which must not return:
// ours jumps back to the setjmp of the stage that called libjpeg. Warnings
// print nothing; a reader that needs to know of them (corrupt or missing data)
// sets onWarning. Shared by the JPEG reader and writer.
#include <csetjmp>
#include <cstdio>
#include <jpeglib.h>

namespace korv::jpeg {

struct ErrorManager {
    jpeg_error_mgr mgr;
    jmp_buf jump;
    void (*onWarning)(j_common_ptr) = nullptr;
    void* user = nullptr; // for onWarning
};

inline void onError(j_common_ptr cinfo) {
    std::longjmp(reinterpret_cast<ErrorManager*>(cinfo->err)->jump, 1);
}

inline void onMessage(j_common_ptr cinfo, int level) {
    auto* err = reinterpret_cast<ErrorManager*>(cinfo->err);
    if (level < 0 && err->onWarning) err->onWarning(cinfo);
}

// Fills err and gives the pointer for cinfo.err; setjmp(err.jump) stays with the caller.
inline jpeg_error_mgr* install(ErrorManager& err) {
    jpeg_error_mgr* mgr = jpeg_std_error(&err.mgr);
    err.mgr.error_exit = onError;
    err.mgr.emit_message = onMessage;
    return mgr;
}

} // namespace korv::jpeg
