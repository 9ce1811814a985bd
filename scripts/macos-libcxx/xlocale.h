// Darwin's <xlocale.h>, which libc++ includes on Apple targets: the character classes and the
// locale-taking C functions it calls there. glibc declares the others under _GNU_SOURCE.
// Signatures as Darwin has them (macOS libcxx check only).
#pragma once
#include <ctype.h>
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>
#include <wchar.h>

#define _CTYPE_A 0x00000100L
#define _CTYPE_C 0x00000200L
#define _CTYPE_D 0x00000400L
#define _CTYPE_G 0x00000800L
#define _CTYPE_L 0x00001000L
#define _CTYPE_P 0x00002000L
#define _CTYPE_S 0x00004000L
#define _CTYPE_U 0x00008000L
#define _CTYPE_X 0x00010000L
#define _CTYPE_B 0x00020000L
#define _CTYPE_R 0x00040000L

#ifdef __cplusplus
extern "C" {
#endif
int ___mb_cur_max_l(locale_t locale);
#define MB_CUR_MAX_L(locale) ___mb_cur_max_l(locale)
wint_t btowc_l(int c, locale_t locale);
int wctob_l(wint_t c, locale_t locale);
size_t wcsnrtombs_l(char* out, const wchar_t** in, size_t count, size_t size, mbstate_t* state,
                    locale_t locale);
size_t wcrtomb_l(char* out, wchar_t c, mbstate_t* state, locale_t locale);
size_t mbsnrtowcs_l(wchar_t* out, const char** in, size_t count, size_t size, mbstate_t* state,
                    locale_t locale);
size_t mbrtowc_l(wchar_t* out, const char* in, size_t size, mbstate_t* state, locale_t locale);
int mbtowc_l(wchar_t* out, const char* in, size_t size, locale_t locale);
size_t mbrlen_l(const char* in, size_t size, mbstate_t* state, locale_t locale);
struct lconv* localeconv_l(locale_t locale);
size_t mbsrtowcs_l(wchar_t* out, const char** in, size_t size, mbstate_t* state, locale_t locale);
int snprintf_l(char* out, size_t size, locale_t locale, const char* format, ...);
int asprintf_l(char** out, locale_t locale, const char* format, ...);
int sscanf_l(const char* in, locale_t locale, const char* format, ...);
#ifdef __cplusplus
}
#endif
