/*
 * The extension's SQL functions: their arguments, the text encoding, the
 * limits, and the server's errors. The engines run behind engines.h. This
 * file is C so that an error, which jumps out of the function, never jumps
 * over a C++ frame.
 *
 * Every ..._try function returns NULL where its plain twin raises a data
 * error (class 22), so that a query over a dirty table can find the bad rows.
 */
#include "postgres.h"

#include "catalog/namespace.h"
#include "common/hashfn.h"
#include "fmgr.h"
#include "mb/pg_wchar.h"
#include "utils/builtins.h"
#include "utils/jsonb.h"

#include "pg/engines.h"

PG_MODULE_MAGIC;

/* ---- Refusals ------------------------------------------------------------ */

typedef enum RefusalKind {
    kTooLong,          /* 22001 */
    kNotInCodePage,    /* 22021 */
    kEngineRefused,    /* 22P02 */
    kOverflow,         /* 22P02 */
    kBadMode,          /* 22023 */
    kVarsNotObject,    /* 22023 */
    kVarNotText,       /* 22023 */
    kVarTooLong,       /* 22001 */
    kUnknownVar,       /* 22023 */
    kVarTwice,         /* 22023 */
    kNoMemory,         /* 53200, also for the ..._try functions */
    kFailed            /* XX000, likewise */
} RefusalKind;

/* What went wrong, kept as facts: the message is built only when it is raised. */
typedef struct Refusal {
    RefusalKind kind;
    const char *subject;   /* "percentage string" ... */
    const char *text;      /* the refused text, in the database encoding */
    int textLength;        /* in bytes */
    const char *engineText; /* the same in Windows-1252, where names are cut from */
    const char *name;      /* the variable of a vars refusal */
    int nameLength;
    int position;          /* 0-based characters */
    int length;            /* characters */
    int offset;            /* bytes in front of the character of kNotInCodePage */
    int actual;            /* characters, and the limit, of kTooLong */
    int limit;
    const char *reason;    /* what the engine refused */
    int token;             /* kVrnPgToken... */
} Refusal;

static int
RefusalCode(RefusalKind kind)
{
    switch (kind)
    {
        case kTooLong:
        case kVarTooLong: return ERRCODE_STRING_DATA_RIGHT_TRUNCATION;
        case kNotInCodePage: return ERRCODE_CHARACTER_NOT_IN_REPERTOIRE;
        case kEngineRefused:
        case kOverflow: return ERRCODE_INVALID_TEXT_REPRESENTATION;
        case kNoMemory: return ERRCODE_OUT_OF_MEMORY;
        case kFailed: return ERRCODE_INTERNAL_ERROR;
        default: return ERRCODE_INVALID_PARAMETER_VALUE;
    }
}

static void
RaiseEngineRefusal(const Refusal *r)
{
    const char *reason = r->reason;

    if (r->token == kVrnPgTokenUnsetVariable)
        reason = psprintf("variable %.*s is not set", r->length, r->engineText + r->position);
    else if (r->token == kVrnPgTokenNoVariable)
        reason = psprintf("%.*s is no variable", r->length, r->engineText + r->position);
    ereport(ERROR,
            (errcode(RefusalCode(r->kind)),
             errmsg("invalid %s \"%.*s\": %s", r->subject, r->textLength, r->text, reason),
             errdetail("error at position %d, length %d", r->position + 1, r->length)));
}

static void Raise(const Refusal *r) pg_attribute_noreturn();

static void
Raise(const Refusal *r)
{
    int code = RefusalCode(r->kind);

    switch (r->kind)
    {
        case kTooLong:
            ereport(ERROR, (errcode(code), errmsg("%s is too long", r->subject),
                            errdetail("%d characters, at most %d", r->actual, r->limit)));
            break;
        case kNotInCodePage:
            if (r->name != NULL)
                ereport(ERROR, (errcode(code),
                                errmsg("character \"%.*s\" in the value of variable \"%.*s\" has no equivalent in "
                                       "Windows-1252",
                                       pg_mblen(r->text + r->offset), r->text + r->offset, r->nameLength, r->name),
                                errdetail("error at position %d, length 1", r->position + 1)));
            ereport(ERROR, (errcode(code),
                            errmsg("character \"%.*s\" in %s \"%.*s\" has no equivalent in Windows-1252",
                                   pg_mblen(r->text + r->offset), r->text + r->offset, r->subject,
                                   r->textLength, r->text),
                            errdetail("error at position %d, length 1", r->position + 1)));
            break;
        case kEngineRefused:
            RaiseEngineRefusal(r);
            break;
        case kOverflow:
            ereport(ERROR, (errcode(code), errmsg("invalid %s \"%.*s\": the result would pass %d characters",
                                                  r->subject, r->textLength, r->text, VRN_PG_SYMB_RESULT_SIZE - 1)));
            break;
        case kBadMode:
            ereport(ERROR, (errcode(code), errmsg("mode must be 0, 1 or 2, not %d", r->actual),
                            errhint("0 adds percentages, 1 chains discounts, 2 chains mark-ups.")));
            break;
        case kVarsNotObject:
            ereport(ERROR, (errcode(code), errmsg("vars must be a JSON object of variable names and values")));
            break;
        case kVarNotText:
            ereport(ERROR, (errcode(code), errmsg("variable \"%.*s\" must be a string, a number or null in vars",
                                                  r->nameLength, r->name)));
            break;
        case kVarTooLong:
            ereport(ERROR, (errcode(code), errmsg("value of variable \"%.*s\" is too long", r->nameLength, r->name),
                            errdetail("%d characters, at most %d", r->actual, r->limit)));
            break;
        case kUnknownVar:
            ereport(ERROR, (errcode(code), errmsg("vars names \"%.*s\", which is no variable", r->nameLength,
                                                  r->name)));
            break;
        case kVarTwice:
            ereport(ERROR, (errcode(code), errmsg("vars names variable \"%.*s\" twice", r->nameLength, r->name),
                            errdetail("Variable names ignore the case of letters.")));
            break;
        case kNoMemory:
            ereport(ERROR, (errcode(code), errmsg("out of memory")));
            break;
        case kFailed:
            break;
    }
    elog(ERROR, "the %s engine failed", r->subject);
}

/* NULL for a ..._try function's data refusal; otherwise the error. */
static Datum
Refused(FunctionCallInfo fcinfo, bool soft, const Refusal *r)
{
    if (soft && r->kind != kNoMemory && r->kind != kFailed)
        PG_RETURN_NULL();
    Raise(r);
}

/* The refusal of an engine call's outcome other than kVrnPgDone. */
static void
SetEngineRefusal(int outcome, const VrnPgFault *fault, Refusal *r)
{
    switch (outcome)
    {
        case kVrnPgRefused: r->kind = kEngineRefused; break;
        case kVrnPgOverflow: r->kind = kOverflow; break;
        case kVrnPgNoMemory: r->kind = kNoMemory; break;
        default: r->kind = kFailed; break;
    }
    r->position = (int) fault->position;
    r->length = (int) fault->length;
    r->reason = fault->reason;
    r->token = fault->token;
}

/* ---- Text between the database encoding and Windows-1252 ------------------ */

/* A text as the engines read it: Windows-1252 bytes with two NULs behind. */
typedef struct EngineText {
    char *bytes;
    int length;
} EngineText;

/* Eight bytes at a time: every row's text passes here. */
static bool
IsAscii(const char *bytes, int length)
{
    uint64 high = 0;
    uint64 word;
    int i = 0;

    for (; i + 8 <= length; i += 8)
    {
        memcpy(&word, bytes + i, 8);
        high |= word;
    }
    for (; i < length; i++)
        high |= (unsigned char) bytes[i];
    return (high & UINT64CONST(0x8080808080808080)) == 0;
}

/* Looked up once: a backend stays in one database, so in one encoding. */
static Oid
ToWin1252Proc(void)
{
    static Oid proc = InvalidOid;

    if (!OidIsValid(proc))
    {
        proc = FindDefaultConversionProc(GetDatabaseEncoding(), PG_WIN1252);
        if (!OidIsValid(proc))
            ereport(ERROR, (errcode(ERRCODE_FEATURE_NOT_SUPPORTED),
                            errmsg("no conversion from %s to WIN1252", GetDatabaseEncodingName())));
    }
    return proc;
}

/*
 * Converts source (length bytes of the database encoding) to Windows-1252 in
 * buffer, or in a new block when it doesn't fit. limit is the most
 * characters taken, or -1. A refusal gets kind, position, offset and the
 * counts; the caller fills in what was refused.
 */
static bool
ReadWin1252(const char *source, int length, int limit, char *buffer, int bufferSize, EngineText *out, Refusal *r)
{
    int encoding = GetDatabaseEncoding();
    int characters = length;
    const char *bytes = source;

    if (encoding != PG_WIN1252 && encoding != PG_SQL_ASCII && !IsAscii(source, length))
    {
        int room = length * MAX_CONVERSION_GROWTH + 1;
        char *converted;
        int taken;

        characters = pg_mbstrlen_with_len(source, length);
        if (limit < 0 || characters <= limit)
        {
            converted = palloc(room);
            taken = pg_do_encoding_conversion_buf(ToWin1252Proc(), encoding, PG_WIN1252, (unsigned char *) source,
                                                  length, (unsigned char *) converted, room, true);
            if (taken < length)
            {
                r->kind = kNotInCodePage;
                r->offset = taken;
                r->position = pg_mbstrlen_with_len(source, taken);
                r->length = 1;
                return false;
            }
            bytes = converted;
            characters = (int) strlen(converted);
        }
    }
    if (limit >= 0 && characters > limit)
    {
        r->kind = kTooLong;
        r->actual = characters;
        r->limit = limit;
        return false;
    }
    out->bytes = characters + 2 <= bufferSize ? buffer : palloc(characters + 2);
    memcpy(out->bytes, bytes, characters);
    out->bytes[characters] = '\0';
    out->bytes[characters + 1] = '\0';
    out->length = characters;
    return true;
}

/* A text argument read for the engines; the refusal names it as subject. */
static bool
ReadArgument(text *argument, const char *subject, int limit, char *buffer, int bufferSize, EngineText *out,
             Refusal *r)
{
    r->subject = subject;
    r->text = VARDATA_ANY(argument);
    r->textLength = (int) VARSIZE_ANY_EXHDR(argument);
    return ReadWin1252(r->text, r->textLength, limit, buffer, bufferSize, out, r);
}

/* An engine's Windows-1252 result as a text of the database encoding. */
static text *
ServerText(const char *bytes, int length)
{
    const char *converted;

    if (IsAscii(bytes, length))
        return cstring_to_text_with_len(bytes, length);
    converted = pg_any_to_server(bytes, length, PG_WIN1252);
    return cstring_to_text_with_len(converted, converted == bytes ? length : (int) strlen(converted));
}

/* ---- Percentage strings --------------------------------------------------- */

static const char kPercStr[] = "percentage string";

static Datum
PercStrNormalizeCall(FunctionCallInfo fcinfo, bool soft, bool defects)
{
    char buffer[VRN_PG_NORMALIZE_MAX + 2];
    char normalized[VRN_PG_NORMALIZE_MAX + 1];
    uint32_t length;
    int32_t errors;
    int32_t outcome;
    EngineText input;
    VrnPgFault fault = {0};
    Refusal r = {0};

    if (!ReadArgument(PG_GETARG_TEXT_PP(0), kPercStr, VRN_PG_NORMALIZE_MAX, buffer, sizeof buffer, &input, &r))
        return Refused(fcinfo, soft, &r);
    outcome = VrnPgPercStrNormalize(input.bytes, normalized, &length, &errors);
    if (outcome != kVrnPgDone)
    {
        SetEngineRefusal(outcome, &fault, &r);
        return Refused(fcinfo, soft, &r);
    }
    if (defects)
        PG_RETURN_INT32(errors);
    PG_RETURN_TEXT_P(ServerText(normalized, (int) length));
}

/*
 * A price list repeats a few discounts over many rows, so each call site
 * keeps, for its query, the values of the texts it evaluated: the same
 * bytes of the database encoding and the same mode give the same double.
 * Only values are kept; a refused text goes through the engine each time.
 */
typedef struct EvalKey {
    uint64 words[3];  /* the text, zero beyond its length */
    uint32 shape;     /* its length, and the engine's mode times 256 */
} EvalKey;

StaticAssertDecl(sizeof(((EvalKey *) 0)->words) >= VRN_PG_EVALUATE_MAX, "a key holds the longest text");

static inline uint32
EvalKeyHash(const EvalKey *k)
{
    uint64 h = (k->words[0] * UINT64CONST(0x9E3779B97F4A7C15)) ^ (k->words[1] * UINT64CONST(0xC2B2AE3D27D4EB4F)) ^
               (k->words[2] * UINT64CONST(0x165667B19E3779F9)) ^ k->shape;

    h ^= h >> 29;
    h *= UINT64CONST(0xBF58476D1CE4E5B9);
    return (uint32) (h ^ (h >> 32));
}

static inline bool
EvalKeyEqual(const EvalKey *a, const EvalKey *b)
{
    return a->words[0] == b->words[0] && a->words[1] == b->words[1] && a->words[2] == b->words[2] &&
           a->shape == b->shape;
}

typedef struct EvalMemoEntry {
    EvalKey key;
    char status;
    uint32 hash;
    double value;
} EvalMemoEntry;

#define SH_PREFIX evalmemo
#define SH_ELEMENT_TYPE EvalMemoEntry
#define SH_KEY_TYPE EvalKey
#define SH_KEY key
#define SH_HASH_KEY(tb, k) EvalKeyHash(&(k))
#define SH_EQUAL(tb, a, b) EvalKeyEqual(&(a), &(b))
#define SH_STORE_HASH
#define SH_GET_HASH(tb, a) a->hash
#define SH_SCOPE static inline
#define SH_DECLARE
#define SH_DEFINE
/* The server's own header, written without -Wextra in mind. */
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include "lib/simplehash.h"
#pragma GCC diagnostic pop

/* A call site keeps at most this many texts. */
#define EVAL_MEMO_MOST 8192

/* How a call site's kept values serve it. */
typedef struct MemoCounts {
    uint64 lookups;
    uint64 hits;
    bool off;  /* full, and missing more often than not: looking costs more than it saves */
} MemoCounts;

static inline void
CountLookup(MemoCounts *counts, bool hit)
{
    counts->lookups++;
    counts->hits += hit;
}

/* A value that a full memo can't keep. */
static inline void
CountUnkept(MemoCounts *counts)
{
    if (counts->hits < counts->lookups / 2)
        counts->off = true;
}

typedef struct EvalMemo {
    evalmemo_hash *table;
    MemoCounts counts;
} EvalMemo;

static EvalMemo *
EvalMemoOf(FunctionCallInfo fcinfo)
{
    EvalMemo *memo;

    if (fcinfo->flinfo == NULL)
        return NULL;
    if (fcinfo->flinfo->fn_extra == NULL)
    {
        memo = MemoryContextAllocZero(fcinfo->flinfo->fn_mcxt, sizeof(EvalMemo));
        memo->table = evalmemo_create(fcinfo->flinfo->fn_mcxt, 256, NULL);
        fcinfo->flinfo->fn_extra = memo;
    }
    memo = (EvalMemo *) fcinfo->flinfo->fn_extra;
    return memo->counts.off ? NULL : memo;
}

static Datum
PercStrEvalCall(FunctionCallInfo fcinfo, bool soft)
{
    char buffer[VRN_PG_EVALUATE_MAX + 2];
    text *argument = PG_GETARG_TEXT_PP(0);
    int32_t mode = PG_GETARG_INT32(1);
    int bytes = (int) VARSIZE_ANY_EXHDR(argument);
    EvalMemo *memo = bytes <= VRN_PG_EVALUATE_MAX ? EvalMemoOf(fcinfo) : NULL;
    EvalKey key;
    EvalMemoEntry *entry;
    bool found;
    double value;
    int32_t outcome;
    EngineText input;
    VrnPgFault fault;
    Refusal r = {0};

    if (memo != NULL)
    {
        /* The engine reads any mode word but 0 and 1 as 2. */
        key.words[0] = key.words[1] = key.words[2] = 0;
        memcpy(key.words, VARDATA_ANY(argument), bytes);
        key.shape = (uint32) bytes | (uint32) (mode == 0 || mode == 1 ? mode : 2) << 8;
        entry = evalmemo_lookup(memo->table, key);
        CountLookup(&memo->counts, entry != NULL);
        if (entry != NULL)
            PG_RETURN_FLOAT8(entry->value);
    }
    if (!ReadArgument(argument, kPercStr, VRN_PG_EVALUATE_MAX, buffer, sizeof buffer, &input, &r))
        return Refused(fcinfo, soft, &r);
    outcome = VrnPgPercStrEvaluate(input.bytes, mode, &value, &fault);
    if (outcome != kVrnPgDone)
    {
        SetEngineRefusal(outcome, &fault, &r);
        return Refused(fcinfo, soft, &r);
    }
    if (memo != NULL && memo->table->members < EVAL_MEMO_MOST)
        evalmemo_insert(memo->table, key, &found)->value = value;
    else if (memo != NULL)
        CountUnkept(&memo->counts);
    PG_RETURN_FLOAT8(value);
}

/* ---- Symbolic percentage strings ------------------------------------------ */

static const char kSymbolic[] = "symbolic percentage string";

static bool
ReadVariableName(const JsonbValue *key, VrnPgSymbVar *var, Refusal *r)
{
    int length = key->val.string.len;

    r->name = key->val.string.val;
    r->nameLength = length;
    /* Every name of the table is ASCII and at most 40 long. */
    if (length > VRN_PG_SYMB_NAME_MAX || !IsAscii(r->name, length))
    {
        r->kind = kUnknownVar;
        return false;
    }
    memcpy(var->name, r->name, length);
    var->name[length] = '\0';
    return true;
}

static bool
ReadVariableValue(const JsonbValue *value, VrnPgSymbVar *var, Refusal *r)
{
    const char *source = "";
    int length = 0;
    char buffer[VRN_PG_SYMB_VALUE_MAX + 2];
    EngineText text;

    if (value->type == jbvString)
    {
        source = value->val.string.val;
        length = value->val.string.len;
    }
    else if (value->type == jbvNumeric)
    {
        source = DatumGetCString(DirectFunctionCall1(numeric_out, NumericGetDatum(value->val.numeric)));
        length = (int) strlen(source);
    }
    else if (value->type != jbvNull)
    {
        r->kind = kVarNotText;
        return false;
    }
    if (!ReadWin1252(source, length, VRN_PG_SYMB_VALUE_MAX, buffer, sizeof buffer, &text, r))
    {
        if (r->kind == kTooLong)
            r->kind = kVarTooLong;
        r->text = source;
        r->textLength = length;
        return false;
    }
    memcpy(var->value, text.bytes, text.length + 1);
    return true;
}

/* The variables of a vars object, in a new array of *count. */
static bool
ReadVariables(Jsonb *vars, VrnPgSymbVar **list, int32_t *count, Refusal *r)
{
    JsonbIterator *it;
    JsonbValue v;
    JsonbIteratorToken token;
    int32_t n = 0;

    if (!JB_ROOT_IS_OBJECT(vars))
    {
        r->kind = kVarsNotObject;
        return false;
    }
    *list = palloc0(sizeof(VrnPgSymbVar) * (JB_ROOT_COUNT(vars) + 1));
    it = JsonbIteratorInit(&vars->root);
    while ((token = JsonbIteratorNext(&it, &v, true)) != WJB_DONE)
    {
        if (token == WJB_KEY && !ReadVariableName(&v, &(*list)[n], r))
            return false;
        if (token == WJB_VALUE && !ReadVariableValue(&v, &(*list)[n++], r))
            return false;
    }
    *count = n;
    return true;
}

/* The JSON key of variable `item`, for a message. */
static void
NameVariable(Jsonb *vars, int32_t item, Refusal *r)
{
    JsonbIterator *it = JsonbIteratorInit(&vars->root);
    JsonbValue v;
    JsonbIteratorToken token;
    int32_t n = 0;

    while ((token = JsonbIteratorNext(&it, &v, true)) != WJB_DONE)
    {
        if (token == WJB_KEY && n++ == item)
        {
            r->name = v.val.string.val;
            r->nameLength = v.val.string.len;
        }
    }
}

/*
 * The reductions a call site made in its query, as percstr_eval keeps its
 * values: the key is the mode, the text and the vars object as bytes (equal
 * bytes are equal arguments), the value the engine's result.
 */
typedef struct SymbKey {
    uint32 length;
    char bytes[FLEXIBLE_ARRAY_MEMBER];
} SymbKey;

typedef struct SymbMemoEntry {
    const SymbKey *key;
    char status;
    uint32 hash;
    uint8 length;
    char result[VRN_PG_SYMB_RESULT_SIZE];
} SymbMemoEntry;

#define SH_PREFIX symbmemo
#define SH_ELEMENT_TYPE SymbMemoEntry
#define SH_KEY_TYPE const SymbKey *
#define SH_KEY key
#define SH_HASH_KEY(tb, k) hash_bytes((const unsigned char *) (k)->bytes, (int) (k)->length)
#define SH_EQUAL(tb, a, b) ((a)->length == (b)->length && memcmp((a)->bytes, (b)->bytes, (a)->length) == 0)
#define SH_STORE_HASH
#define SH_GET_HASH(tb, a) a->hash
#define SH_SCOPE static inline
#define SH_DECLARE
#define SH_DEFINE
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include "lib/simplehash.h"
#pragma GCC diagnostic pop

#define SYMB_KEY_MOST 512   /* longer arguments are reduced each time */
#define SYMB_MEMO_MOST 4096

typedef struct SymbMemo {
    symbmemo_hash *table;
    MemoCounts counts;
} SymbMemo;

/* The key of a call, in key (room for SYMB_KEY_MOST bytes), or false when it is longer. */
static bool
SymbKeyOf(int32_t mode, const text *argument, const Jsonb *vars, SymbKey *key)
{
    uint32 textBytes = VARSIZE_ANY_EXHDR(argument);
    uint32 varsBytes = VARSIZE(vars);
    char *at = key->bytes;

    if (1 + sizeof textBytes + textBytes + varsBytes > SYMB_KEY_MOST)
        return false;
    *at++ = (char) mode;
    memcpy(at, &textBytes, sizeof textBytes);
    at += sizeof textBytes;
    memcpy(at, VARDATA_ANY(argument), textBytes);
    memcpy(at + textBytes, vars, varsBytes);
    key->length = 1 + sizeof textBytes + textBytes + varsBytes;
    return true;
}

static SymbMemo *
SymbMemoOf(FunctionCallInfo fcinfo)
{
    SymbMemo *memo;

    if (fcinfo->flinfo == NULL)
        return NULL;
    if (fcinfo->flinfo->fn_extra == NULL)
    {
        memo = MemoryContextAllocZero(fcinfo->flinfo->fn_mcxt, sizeof(SymbMemo));
        memo->table = symbmemo_create(fcinfo->flinfo->fn_mcxt, 256, NULL);
        fcinfo->flinfo->fn_extra = memo;
    }
    memo = (SymbMemo *) fcinfo->flinfo->fn_extra;
    return memo->counts.off ? NULL : memo;
}

static void
KeepReduction(FunctionCallInfo fcinfo, SymbMemo *memo, const SymbKey *key, const char *result, uint32_t length)
{
    SymbKey *kept;
    SymbMemoEntry *entry;
    bool found;

    if (memo->table->members >= SYMB_MEMO_MOST)
    {
        CountUnkept(&memo->counts);
        return;
    }
    kept = MemoryContextAlloc(fcinfo->flinfo->fn_mcxt, offsetof(SymbKey, bytes) + key->length);
    memcpy(kept, key, offsetof(SymbKey, bytes) + key->length);
    entry = symbmemo_insert(memo->table, kept, &found);
    entry->length = (uint8) length;
    memcpy(entry->result, result, length);
}

static Datum
PercStrSymbReduceCall(FunctionCallInfo fcinfo, bool soft)
{
    char buffer[VRN_PG_SYMB_TEXT_MAX + 2];
    char result[VRN_PG_SYMB_RESULT_SIZE];
    uint32 keyRoom[(offsetof(SymbKey, bytes) + SYMB_KEY_MOST) / sizeof(uint32) + 1];
    SymbKey *key = (SymbKey *) keyRoom;
    uint32_t length;
    int32_t mode = PG_GETARG_INT32(2);
    int32_t count = 0;
    int32_t outcome;
    text *argument = PG_GETARG_TEXT_PP(0);
    Jsonb *vars = PG_GETARG_JSONB_P(1);
    SymbMemo *memo = NULL;
    SymbMemoEntry *entry;
    VrnPgSymbVar *list = NULL;
    EngineText input;
    VrnPgFault fault;
    Refusal r = {0};

    if (mode < 0 || mode > 2)
    {
        r.kind = kBadMode;
        r.actual = mode;
        return Refused(fcinfo, soft, &r);
    }
    if (SymbKeyOf(mode, argument, vars, key))
        memo = SymbMemoOf(fcinfo);
    if (memo != NULL)
    {
        entry = symbmemo_lookup(memo->table, key);
        CountLookup(&memo->counts, entry != NULL);
        if (entry != NULL)
            PG_RETURN_TEXT_P(ServerText(entry->result, entry->length));
    }
    if (!ReadArgument(argument, kSymbolic, VRN_PG_SYMB_TEXT_MAX, buffer, sizeof buffer, &input, &r))
        return Refused(fcinfo, soft, &r);
    if (!ReadVariables(vars, &list, &count, &r))
        return Refused(fcinfo, soft, &r);
    outcome = VrnPgPercStrSymbReduce(input.bytes, mode, list, count, result, &length, &fault);
    if (outcome == kVrnPgUnknownVariable || outcome == kVrnPgVariableTwice)
    {
        r.kind = outcome == kVrnPgUnknownVariable ? kUnknownVar : kVarTwice;
        NameVariable(vars, fault.item, &r);
        return Refused(fcinfo, soft, &r);
    }
    if (outcome != kVrnPgDone)
    {
        SetEngineRefusal(outcome, &fault, &r);
        r.engineText = input.bytes;
        return Refused(fcinfo, soft, &r);
    }
    if (memo != NULL)
        KeepReduction(fcinfo, memo, key, result, length);
    PG_RETURN_TEXT_P(ServerText(result, (int) length));
}

/* ---- Price formulas ------------------------------------------------------- */

static const char kFormula[] = "price formula";
static const char kNormalForm[] = "normal form";

static Datum
PFormulaNormalizeCall(FunctionCallInfo fcinfo, bool soft)
{
    char buffer[VRN_PG_FORMULA_MAX + 2];
    char *normalForm;
    uint32_t length;
    int32_t outcome;
    EngineText input;
    VrnPgFault fault;
    Refusal r = {0};

    if (!ReadArgument(PG_GETARG_TEXT_PP(0), kFormula, VRN_PG_FORMULA_MAX, buffer, sizeof buffer, &input, &r))
        return Refused(fcinfo, soft, &r);
    normalForm = palloc(VrnPgPFormulaNormalFormRoom((uint32_t) input.length + 2));
    outcome = VrnPgPFormulaNormalize(input.bytes, (uint32_t) input.length + 2, normalForm, &length, &fault);
    if (outcome != kVrnPgDone)
    {
        SetEngineRefusal(outcome, &fault, &r);
        return Refused(fcinfo, soft, &r);
    }
    PG_RETURN_TEXT_P(ServerText(normalForm, (int) length));
}

static Datum
PFormulaEvalCall(FunctionCallInfo fcinfo, bool soft)
{
    char buffer[256];
    double value = PG_GETARG_FLOAT8(1);
    int32_t outcome;
    EngineText input;
    VrnPgFault fault;
    Refusal r = {0};

    if (!ReadArgument(PG_GETARG_TEXT_PP(0), kNormalForm, -1, buffer, sizeof buffer, &input, &r))
        return Refused(fcinfo, soft, &r);
    /* The end lies behind both NULs, as the reader wants it. */
    outcome = VrnPgPFormulaRun(input.bytes, (uint32_t) input.length + 2, &value, &fault);
    if (outcome != kVrnPgDone)
    {
        SetEngineRefusal(outcome, &fault, &r);
        return Refused(fcinfo, soft, &r);
    }
    PG_RETURN_FLOAT8(value);
}

/* ---- The functions -------------------------------------------------------- */

#define VRN_FUNCTION(name, call) \
    PG_FUNCTION_INFO_V1(name); \
    Datum name(PG_FUNCTION_ARGS) { return call; }

VRN_FUNCTION(vrn_percstr_normalize, PercStrNormalizeCall(fcinfo, false, false))
VRN_FUNCTION(vrn_percstr_normalize_try, PercStrNormalizeCall(fcinfo, true, false))
VRN_FUNCTION(vrn_percstr_defects, PercStrNormalizeCall(fcinfo, false, true))
VRN_FUNCTION(vrn_percstr_defects_try, PercStrNormalizeCall(fcinfo, true, true))
VRN_FUNCTION(vrn_percstr_eval, PercStrEvalCall(fcinfo, false))
VRN_FUNCTION(vrn_percstr_eval_try, PercStrEvalCall(fcinfo, true))
VRN_FUNCTION(vrn_percstr_symb_reduce, PercStrSymbReduceCall(fcinfo, false))
VRN_FUNCTION(vrn_percstr_symb_reduce_try, PercStrSymbReduceCall(fcinfo, true))
VRN_FUNCTION(vrn_pformula_normalize, PFormulaNormalizeCall(fcinfo, false))
VRN_FUNCTION(vrn_pformula_normalize_try, PFormulaNormalizeCall(fcinfo, true))
VRN_FUNCTION(vrn_pformula_eval, PFormulaEvalCall(fcinfo, false))
VRN_FUNCTION(vrn_pformula_eval_try, PFormulaEvalCall(fcinfo, true))
