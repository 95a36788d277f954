// The converter of texts between encodings that POSIX has, over the code pages of
// Windows. Known are UTF-8, CP with a number, ISO-8859 with a number, and the
// encodings of the old Macintosh that tables name.
#pragma once

#include <cstddef>

using iconv_t = void*;

iconv_t iconv_open(const char* to, const char* from);
size_t iconv(iconv_t converter, char** in, size_t* inLeft, char** out, size_t* outLeft);
int iconv_close(iconv_t converter);
