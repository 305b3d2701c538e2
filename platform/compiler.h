// Compiler spellings that differ between the platforms the host is built for.
//
// The log and the error reports take printf-style formats, and the compiler
// checks each call against its format when told which functions those are.
// GCC names the checked dialect `printf` on Linux; the Windows build (mingw-w64)
// takes plain `printf` to mean the Microsoft runtime's dialect, which lacks
// formats such as %zu and %lld, while the host's own formatting is GNU's, so
// there it says `gnu_printf`. Code outside platform/ uses the macro and never
// needs to know which it is.
#pragma once

// Marks a function whose argument `format_index` (counting from 1, `this`
// included for members) is a printf format for the arguments from
// `first_arg_index` on.
#if defined(_WIN32)
#define VRK_PRINTF_FORMAT(format_index, first_arg_index) \
    __attribute__((format(gnu_printf, format_index, first_arg_index)))
#else
#define VRK_PRINTF_FORMAT(format_index, first_arg_index) \
    __attribute__((format(printf, format_index, first_arg_index)))
#endif
