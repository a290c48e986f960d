/* The three engines as the server's functions see them: plain C calls over
 * Windows-1252 bytes. Nothing here throws, nothing here reports to the
 * server, and nothing allocated here outlives the call, so the caller may
 * raise an error as soon as a call returns. */
#ifndef VRN_PG_ENGINES_H
#define VRN_PG_ENGINES_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Outcomes of the calls below. */
enum {
    kVrnPgDone = 0,
    kVrnPgRefused = 1,          /* the engine refused the text: see the fault */
    kVrnPgOverflow = 2,         /* the symbolic result would pass 21 characters */
    kVrnPgUnknownVariable = 3,  /* fault.item names no variable of the table */
    kVrnPgVariableTwice = 4,    /* fault.item names a variable set before it */
    kVrnPgNoMemory = 5,
    kVrnPgFailed = 6            /* anything else the engines threw */
};

/* What the token at a symbolic refusal is. */
enum {
    kVrnPgTokenOther = 0,
    kVrnPgTokenUnsetVariable = 1,  /* a variable the call didn't set */
    kVrnPgTokenNoVariable = 2      /* a name that is no variable */
};

#define VRN_PG_NORMALIZE_MAX 21  /* characters the normaliser takes and gives */
#define VRN_PG_EVALUATE_MAX 20
#define VRN_PG_SYMB_TEXT_MAX 1001
#define VRN_PG_SYMB_NAME_MAX 40
#define VRN_PG_SYMB_VALUE_MAX 20
#define VRN_PG_SYMB_RESULT_SIZE 22
#define VRN_PG_FORMULA_MAX 998   /* the engine's 1000 less the two final NULs */

typedef struct VrnPgFault {
    const char *reason; /* what the engine refused, in English: the formula's error, else a syntax error */
    uint32_t position;  /* 0-based byte offset of the offending text */
    uint32_t length;    /* its length in bytes */
    int32_t item;       /* the variable of the variable outcomes */
    int32_t token;      /* symbolic refusals: kVrnPgToken... */
} VrnPgFault;

typedef struct VrnPgSymbVar {
    char name[VRN_PG_SYMB_NAME_MAX + 1];
    char value[VRN_PG_SYMB_VALUE_MAX + 1];
} VrnPgSymbVar;

/* The canonical form of at most 21 characters into normalized (22 bytes);
 * *length gets its length, *defects the count of characters thrown away. */
int32_t VrnPgPercStrNormalize(const char* text, char* normalized, uint32_t* length, int32_t* defects);

/* The number of a percentage string in mode 0, 1 or 2 (any other mode word
 * means 2); the empty text gives the mode's starting value. */
int32_t VrnPgPercStrEvaluate(const char* text, int32_t mode, double* value, VrnPgFault* fault);

/* Reduces text with exactly the variables given, in mode 0, 1 or 2, into
 * result (VRN_PG_SYMB_RESULT_SIZE bytes). The engine's variables, mode and
 * error values are cleared again before the call returns. */
int32_t VrnPgPercStrSymbReduce(const char* text, int32_t mode, const VrnPgSymbVar* vars, int32_t count,
                               char* result, uint32_t* length, VrnPgFault* fault);

/* Room for the normal form of a formula block of `size` bytes. */
uint32_t VrnPgPFormulaNormalFormRoom(uint32_t size);

/* Checks the formula in block (size bytes, the last two NUL) and writes its
 * normal form into normalForm, which has VrnPgPFormulaNormalFormRoom(size)
 * bytes; *length gets its length. */
int32_t VrnPgPFormulaNormalize(char* block, uint32_t size, char* normalForm, uint32_t* length, VrnPgFault* fault);

/* Applies the normal form in block (size bytes, the last two NUL) to *value,
 * which changes on success only. */
int32_t VrnPgPFormulaRun(const char* block, uint32_t size, double* value, VrnPgFault* fault);

#ifdef __cplusplus
}
#endif

#endif
