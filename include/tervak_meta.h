/* libtervak: companion routines that describe the models to a host.
 *
 * Fortran calling convention: every argument by reference; a text argument
 * is a character buffer followed, at the end of the argument list, by its
 * length. Texts are length-prefixed: Name[0] holds the number of characters
 * that follow (at most 255, at most len - 1). Nothing is written when the
 * buffer is null or len is 0. Out-of-range numbers answer an empty text and
 * a count of 0. Each routine is also exported without the trailing
 * underscore.
 */
#ifndef TERVAK_META_H
#define TERVAK_META_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

void getmodelcount_(int32_t* nMod);
void getmodelname_(int32_t* iMod, char* Name, size_t Name_len);
void getparamcount_(int32_t* iMod, int32_t* nParam);
void getparamname_(int32_t* iMod, int32_t* iParam, char* Name, size_t Name_len);
void getparamunit_(int32_t* iMod, int32_t* iParam, char* Unit, size_t Unit_len);
void getstatevarcount_(int32_t* iMod, int32_t* nVar);
void getstatevarname_(int32_t* iMod, int32_t* iVar, char* Name, size_t Name_len);
void getstatevarunit_(int32_t* iMod, int32_t* iVar, char* Unit, size_t Unit_len);
/* The valid range of a parameter: Kind = 0 when none is known, otherwise
 * 1 + 2 (Lo excluded) + 4 (Hi excluded); an infinite end means no limit. */
void getparamrange_(int32_t* iMod, int32_t* iParam, double* Lo, double* Hi, int32_t* Kind);

typedef void (*tervak_count_fn)(int32_t*, int32_t*);
typedef void (*tervak_name_fn)(int32_t*, int32_t*, char*, size_t);

#ifdef __cplusplus
}
#endif

#endif /* TERVAK_META_H */
