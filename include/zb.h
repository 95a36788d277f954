/* zb.h - record-level access to xBase files.
 *
 * One header for the whole interface of libzb: data files (.DBF), memo files
 * (.DBT, .FPT), indexes (NDX, NTX, IDX, MDX), the locks by which programs share
 * a data file, key expressions, dates and times.
 *
 * The contract that every function shares
 *
 * - A function returns its code: 0 for success, below 0 a failure, above 0 a
 *   warning. The code is 16 bits wide, sign-extended to the 32-bit result, and
 *   ZBECODE returns it again until the next call changes it.
 * - A failure stays: while a negative code stands, calls that look at it first
 *   do nothing and return it, until ZBESCODE(0) clears it. A warning lasts
 *   until the next call that uses a handle.
 * - Handles are small integers, valid from the open that gave them to the
 *   close. Nothing else of the library is ever held by the caller, except the
 *   memory blocks that some calls hand over.
 * - Where a pointer may be null the comment says so; elsewhere a null pointer
 *   gives ZB_ErrNullPointer.
 * - There are no threads in the library: calls must come one at a time.
 * - Numbers count thus: fields from 0, records from 1, memo blocks from 1.
 * - Every call but ZBDINIT, QV4InitInstance, ZBDVERSION, _ZBDNKCMP and the
 *   memory-block calls needs a started library; without one it returns
 *   ZB_ErrNotAttached.
 */
#ifndef ZB_H
#define ZB_H

#include <stdint.h>

#if defined(_WIN32)
#if defined(_M_IX86) || defined(__i386__)
#define ZB_CALL __stdcall
#else
#define ZB_CALL
#endif
#define ZB_API
#else
#define ZB_CALL
#define ZB_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- codes ----------------------------------------------------------- */

enum ZbCode {
    ZB_WarnFuncExists = 11, /* a user function of that name is already registered */
    ZB_WarnNoFlush = 8,     /* ZBDDFLUSH: there is never anything to flush */
    ZB_WarnFileSize = 7,    /* open: the file's length doesn't fit its header */
    ZB_WarnRounded = 6,     /* a number changed on its way into the field's text */
    ZB_WarnTruncated = 5,   /* a text was cut to the field's width */
    ZB_KeyNear = 4,         /* key not found exactly, position undefined, function or file not found */
    ZB_KeyEnd = 3,          /* a walk passed the end of the index, or of the list of functions */
    ZB_KeyEmpty = 2,        /* the index is empty; the date is blank; no user function */
    ZB_WarnDeleted = 1,     /* the record read carries the delete flag */
    ZB_Ok = 0,
    ZB_ErrWrite = -1,           /* a write failed or was short */
    ZB_ErrRead = -2,            /* a read failed or was short */
    ZB_ErrMemory = -3,          /* a memory block couldn't be had, resized or freed */
    ZB_ErrSeek = -4,            /* a position, record number or page lies outside the file */
    ZB_ErrRenameMissing = -5,   /* the source of a rename doesn't exist */
    ZB_ErrStructure = -6,       /* the file's structure is damaged */
    ZB_ErrExpression = -7,      /* an expression is malformed, too long or of the wrong type */
    ZB_ErrNoSlot = -8,          /* no free object slot, or no free tag */
    ZB_ErrNoPageHeld = -9,      /* a page was put while none was held */
    ZB_ErrPageNotHeld = -10,    /* a page was put that isn't held */
    ZB_ErrBadOption = -12,      /* an option, mode, dialect or style that isn't known */
    ZB_ErrBadHandle = -13,      /* a handle out of range or of another family */
    ZB_ErrBadName = -14,        /* an empty or unusable file name */
    ZB_ErrBadDate = -15,        /* an invalid date */
    ZB_ErrBadTime = -16,        /* an invalid time */
    ZB_ErrMemoShort = -17,      /* a memo file shorter than its header */
    ZB_ErrFileType = -18,       /* version or signature don't fit the dialect or file type */
    ZB_ErrHeaderLength = -19,   /* a header length that doesn't fit the format */
    ZB_ErrHeaderDate = -20,     /* the date in an MDX header is out of range */
    ZB_ErrNullPointer = -21,    /* a required pointer is null */
    ZB_ErrKeyType = -22,        /* an unknown key type */
    ZB_ErrKeyLength = -23,      /* a key length out of range */
    ZB_ErrKeySize = -24,        /* the header's key length and entry size don't agree */
    ZB_ErrRootPage = -25,       /* the header's root page lies outside the file */
    ZB_ErrKeysPerPage = -26,    /* the header's keys per page don't fit the key length */
    ZB_ErrFieldCount = -27,     /* a field count or field number out of range */
    ZB_ErrFieldName = -28,      /* a field name that is empty, too long or unknown */
    ZB_ErrFieldWidth = -29,     /* a field width out of range; a memo too long to read */
    ZB_ErrFieldDecimals = -30,  /* decimals out of range */
    ZB_ErrFieldType = -31,      /* an unknown field type, or one that the dialect lacks */
    ZB_ErrRecordLength = -32,   /* the record length is over the limit or isn't the sum of the widths */
    ZB_ErrFieldValue = -33,     /* a value that the field can't hold */
    ZB_ErrMemoWidth = -34,      /* a memo wrap width outside 10 to 132 */
    ZB_ErrProductionFlag = -35, /* the header's production-index byte is neither 0 nor 1 */
    ZB_ErrReadOnly = -36,       /* a write to a file open for reading only */
    ZB_ErrLockViolation = -37,  /* a lock is held by another */
    ZB_ErrShareBuffer = -38,    /* the platform ran out of lock space */
    ZB_ErrAccess = -40,         /* an erase or rename was refused */
    ZB_ErrHalfPage = -44,       /* an NTX header's half-page value doesn't fit */
    ZB_ErrOpen = -46,           /* a file couldn't be opened or created */
    ZB_ErrFlush = -47,          /* a flush failed */
    ZB_ErrTagHandle = -48,      /* a tag handle out of range */
    ZB_ErrBlockSize = -49,      /* a block size or multiplier out of range */
    ZB_ErrTagName = -50,        /* a tag name that is bad or can't be found */
    ZB_ErrMdxBlock = -51,       /* MDX header: block length doesn't fit the multiplier */
    ZB_ErrMdxTagTable = -52,    /* MDX header: the tag table hasn't 48 entries */
    ZB_ErrMdxTagSlot = -53,     /* MDX header: a tag table entry hasn't 32 bytes */
    ZB_ErrMdxTagCount = -54,    /* MDX header: tag count outside 0 to 47 */
    ZB_ErrMdxTagFlags = -55,    /* MDX tag: flags hold bits that aren't allowed */
    ZB_ErrBadSignature = -56,   /* DBT header marks wrong */
    ZB_ErrTagInUse = -57,       /* erase or replacement of an attached tag */
    ZB_ErrLockBlock = -58,      /* a memory block couldn't be locked */
    ZB_ErrNotAttached = -59,    /* the library isn't started */
    ZB_ErrIdxPageOver = -5000,  /* IDX page pool out of step */
    ZB_ErrIdxPageUnder = -5001  /* IDX page pool out of step */
};

/* A failure of the platform that has no code of its own comes back as its error
 * number with the bits 0xC000 set, a negative 16-bit value: the low 14 bits are
 * the number. */

/* ---- types and records ------------------------------------------------ */

/* The handle of a memory block: never 0 and never 0xFFFFFFFF. */
typedef uint32_t ZbBlock;

struct ZbEvalState;

/* A function of the host's, called by the expression evaluator. Only the low 16
 * bits of the result count. */
typedef int32_t (*ZbUserFunction)(struct ZbEvalState* state);

/* One field, as the caller of ZBDDCREATE describes it and ZBDDFINFO reports it. */
typedef struct ZbFieldSpec {
    char name[12];     /* zero-terminated, at most 10 characters */
    uint16_t type;     /* 'C', 'D', 'F', 'L', 'M' or 'N' */
    uint16_t width;    /* bytes in the record */
    uint16_t decimals; /* places behind the point */
} ZbFieldSpec;

#pragma pack(push, 1)

typedef struct ZbDataInfo {
    uint32_t lockOffset;  /* start of the last byte range that was to be locked */
    uint32_t lockLength;  /* its length */
    uint16_t infoFlags;   /* bit 0 read only, bit 1 shared, bit 2 never set; other bits are left alone */
    char name[261];       /* the name given to the open */
    uint16_t dialect;     /* 1 to 9 */
    uint16_t hasMemo;     /* 1 when the file has memo fields */
    int16_t production;   /* header byte 28 */
    int16_t transaction;  /* header byte 14 */
    int16_t encryption;   /* header byte 15 */
    int16_t reservedFlag; /* 0 */
} ZbDataInfo;

typedef struct ZbDbtInfo {
    uint16_t flags; /* bit 0 read only, bit 1 shared */
    char path[261]; /* the name given to the open */
    int16_t dialect;
    int16_t reported; /* 0 */
} ZbDbtInfo;

typedef struct ZbFptInfo {
    uint16_t flags;   /* bit 0 read only, bit 1 shared */
    char path[261];   /* the name given to the open */
    int16_t reported; /* 0 */
} ZbFptInfo;

typedef struct ZbNdxInfo {
    char fileName[261];
    uint16_t accessFlags; /* bit 0 read only, bit 1 shared; bits above 2 are left alone */
    uint16_t keyLength;
    uint16_t keyType;  /* 'C' or 'N' */
    uint16_t keyFlags; /* 0x0080 unique */
    int16_t reportedFlag;
    uint16_t expressionLength;
    char expression[100]; /* not terminated when the expression has 100 characters or more */
} ZbNdxInfo;

typedef struct ZbNtxInfo {
    char fileName[261];
    uint16_t accessFlags; /* bit 0 read only, bit 1 shared; bits above 2 are left alone */
    uint16_t keyLength;
    uint16_t keyType;  /* NTX: always '?'; IDX: as set by ZBDIKTYPE */
    uint16_t keyFlags; /* 0x0080 unique, 0x0100 descending, IDX also 0x0400 compact */
    uint16_t decimals; /* NTX: decimals; IDX: the page form, 8 compact or 3 standard */
    int16_t reportedFlag;
    uint16_t expressionLength;
    char expression[100]; /* not terminated when the expression has 100 characters or more */
} ZbNtxInfo;

typedef ZbNtxInfo ZbIdxInfo;

typedef struct ZbMdxInfo {
    uint16_t tagCount;
    uint16_t flags; /* bit 0 read only, bit 1 shared */
    char path[261];
    int16_t reported; /* 0 */
} ZbMdxInfo;

typedef struct ZbMdxTagInfo {
    char name[10];
    uint16_t zero; /* ends a name of 10 characters */
    int16_t keyLength;
    int16_t keyType;  /* 'C', 'D' or 'N' */
    uint16_t options; /* 0x0080 unique, 0x0100 marked */
    uint16_t expressionLength;
    char expression[100]; /* not terminated when the expression has 100 characters or more */
} ZbMdxTagInfo;

#pragma pack(pop)

typedef struct ZbDataRecordInfo {
    uint16_t recordLength; /* bytes, the delete flag included */
    uint16_t fieldCount;
    uintptr_t buffer; /* ZBDDRINFO: address of the record; ZBDDRINFOH: its block handle */
} ZbDataRecordInfo;

/* What an expression came to. The value stays the library's until the caller
 * frees it with ZBMFREE(value). */
typedef struct ZbEvalResult {
    void* value;
    int16_t type;   /* 'C', 'D', 'L', 'M', 'N' or 'F'; a blank when there is no value */
    int16_t length; /* bytes */
} ZbEvalResult;

/* The evaluator's state, which a user function receives. */
typedef struct ZbEvalState {
    ZbBlock ValueBlock; /* block of the term just evaluated */
    void* ValuePtr;     /* its address */
    int16_t ValueType;  /* 'C', 'N' or 'F', 'D', 'L', 'M' */
    int16_t ValueLength;
    char* Cursor;        /* where the scanner stands in the expression */
    ZbBlock ResultBlock; /* block of the value built so far */
    void* ResultPtr;
    int16_t ResultType; /* a blank while nothing has been added */
    int16_t ResultLength;
    uint32_t DateAsKey; /* set while the argument of DTOS( is evaluated */
} ZbEvalState;

/* ---- open modes -------------------------------------------------------- */

/* The low byte of an open's mode names the dialect; these bits are added. */
enum ZbOpenMode {
    ZB_ReadOnly = 0x0100,   /* open for reading only */
    ZB_Shared = 0x0400,     /* let others read and write */
    ZB_OpenShared = 0x0800, /* as ZB_Shared */
    ZB_Production = 0x0200  /* creation: set the production-index byte */
};

enum ZbDialect {
    ZB_DialectClassic = 1,
    ZB_DialectDb4 = 2,
    ZB_DialectClassicAlt = 3,
    ZB_DialectFox128 = 4,
    ZB_DialectWide = 5,
    ZB_DialectWideChar = 6,
    ZB_DialectEofFill = 7,
    ZB_DialectFox255 = 8,
    ZB_DialectPaddedHeader = 9
};
/* ---- library ----
 *
 * A process is one client of the library, which is started once and may be
 * started again at any time. The settings come from the section [sort] of the
 * profile file QVDB4XX.INI, which is looked for in the current directory, then
 * in $XDG_CONFIG_HOME (or ~/.config), then in /etc; the first that exists is
 * read (on Windows the system's own search applies):
 *
 *   datesort=    the date style at the start: GREGOR, GREGORL, JULIAN, YMD, DMY,
 *                GERMAN or EURODATE, GERMANL or EURODATEL, BRITISH, BRITISHL,
 *                FRENCH, FRENCHL, ITALIAN, ITALIANL, ENSI, ENSIL, in any case of
 *                letters. A missing or unknown name is GREGOR.
 *   asciisort=   1 (the default, and every other number): character keys sort by
 *                the values of their bytes. 0: they sort by the collating order.
 *
 * Two environment variables matter where the system isn't Windows. ZB_TODAY, as
 * YYYY-MM-DD, is the date of today for the library. ZB_READS=pread makes every
 * read a system call; otherwise files on local file systems are read out of
 * memory that they share with every other process. Such a read sees all that
 * others write. Only where another process has cut a file short in its middle,
 * zeros may be read in the rest of that one memory page until a read meets the
 * end of the file.
 */

/* Starts the library. A library that runs is stopped first as by ZBDTERM: all
 * its objects are closed and their handles void.
 *
 * tableSize: room for open objects, of which 5 are withheld; it is cut to 100, so
 *   that at most 95 objects can be open. With 5 the library runs and every open
 *   fails with ZB_ErrNoSlot.
 * dateStyle: 1 to 15; anything else takes "datesort" from the profile.
 *
 * ZB_ErrBadHandle for a tableSize below 5, ZB_ErrMemory: the client exists all
 * the same, without a table, so that the code can be read, and ZBDTERM and
 * ZBDINIT work; whatever uses a handle then fails with ZB_ErrLockBlock. Succeeds
 * although there was no memory for the file handles; then no file can be opened.
 * A pending failure doesn't stop it and is cleared, and the log is off. */
ZB_API int32_t ZB_CALL ZBDINIT(int16_t tableSize, uint8_t dateStyle);

/* Closes every object, whatever comes of each close, and ends the library. User
 * functions are forgotten; blocks that the caller was given stay his. A pending
 * failure doesn't stop it. ZB_ErrNotAttached if the library isn't started. */
ZB_API int32_t ZB_CALL ZBDTERM(void);

/* Gives up the platform file of every open object and keeps the objects. They
 * can no longer be used: each call on such a handle fails with ZB_ErrOpen, its
 * close too, and only ZBDTERM ends them. Headers that wait to be written are
 * not. Returns 0 whatever came of the single files, ZB_ErrNotAttached, or
 * ZB_ErrLockBlock without a table; a pending failure doesn't stop it. */
ZB_API int32_t ZB_CALL ZBDQCLOSE(void);

/* 0 if the host was built for this interface, which is version 3, and
 * ZB_ErrFileType otherwise. Leaves the code alone and needs no library. */
ZB_API int32_t ZB_CALL ZBDVERSION(uint16_t version);

/* What a host calls when it loads the library: ZBDINIT(100, 0). Returns 1 if that
 * succeeded and 0 if not. `first` is ignored, `second` is kept and not used. */
ZB_API int32_t ZB_CALL QV4InitInstance(uint32_t first, uint32_t second);

/* ---- memory blocks ----
 *
 * A block is zero-filled and has 128 bytes more than were asked for, zero too. It
 * is named by a handle; its address holds until the block is resized or freed.
 * These functions look at no pending failure, a success leaves the code as it is,
 * and they need no started library, except that a failure without one is
 * reported as ZB_ErrNotAttached.
 */

/* Gives a new block of `size` bytes; 0 is a size. ZB_ErrMemory, with 0 in
 * `handle`; ZB_ErrNullPointer. */
ZB_API int32_t ZB_CALL _ZBMALLOC(ZbBlock* handle, uint32_t size);

/* Resizes the block named by `*handle`; its address may change, and what it gains
 * is zero. ZB_ErrMemory, also for a handle that names no block, and the block is
 * as it was; ZB_ErrNullPointer. */
ZB_API int32_t ZB_CALL _ZBMRALLOC(ZbBlock* handle, uint32_t size);

/* Frees a block, locked or not. A handle that names none, such as one that has
 * been freed before, is passed over, and the pending code comes back. */
ZB_API int32_t ZB_CALL _ZBMFREE(ZbBlock handle);

/* Frees the block that begins at an address; any other address, and null, is
 * passed over. Always returns 0. */
ZB_API int32_t ZB_CALL ZBMFREE(void* address);

/* Tells the address of a block. ZB_ErrLockBlock for a handle that names none,
 * with a null address; ZB_ErrNullPointer. */
ZB_API int32_t ZB_CALL _ZBMLOCK(void** address, ZbBlock handle);

/* The other half of _ZBMLOCK. Does nothing and returns 0: a block stays where it
 * is in any case. */
ZB_API int32_t ZB_CALL _ZBMUNLOCK(ZbBlock handle);

/* ---- errors and the log ---- */

/* The code of the last call that set one; ZB_ErrNotAttached without a library. */
ZB_API int32_t ZB_CALL ZBECODE(void);

/* Sets the code and returns it: ZBESCODE(0) clears a failure.
 * ZB_ErrNotAttached without a library. */
ZB_API int32_t ZB_CALL ZBESCODE(int16_t code);

/* Switches the log of failures: 0 off, 1 on with a new name, any other number on
 * with the old one. Each level of the library that a failure passes through adds
 * one line to the file: the name of the operation, the line in its source, and
 * the code, with tabs between. The file is opened and closed for each line, and
 * where it can't be, the line is dropped.
 *
 * name: read with `on` 1 only; at most 30 bytes, ending at the first zero. Null
 *   keeps the old name.
 *
 * Returns the standing code, which it leaves alone; ZB_ErrNotAttached without a
 * library. */
ZB_API int32_t ZB_CALL ZBESLOG(uint16_t on, const char* name);

/* ---- data files ---- */

ZB_API int32_t ZB_CALL ZBDDOPENX(uint16_t* handle, const char* name, uint16_t mode);
ZB_API int32_t ZB_CALL ZBDDCLOSE(int16_t data);
ZB_API int32_t ZB_CALL ZBDDHGET(int16_t data);
ZB_API int32_t ZB_CALL ZBDDSIZE(int16_t data, uint32_t* count);
ZB_API int32_t ZB_CALL ZBDDLUD(int16_t data, char* text, int32_t style);
ZB_API int32_t ZB_CALL ZBDDINFO(int16_t data, ZbDataInfo* info);
ZB_API int32_t ZB_CALL ZBDDCREATE(const char* name, int16_t fieldCount, ZbFieldSpec* specs, int16_t mode);
ZB_API int32_t ZB_CALL ZBDDPACK(int16_t* data);
ZB_API int32_t ZB_CALL ZBDDRGET(int16_t data, int32_t recordNo);
ZB_API int32_t ZB_CALL ZBDDRGETX(int16_t data, void* image, int32_t recordNo);
ZB_API int32_t ZB_CALL ZBDDRPUT(int16_t data, uint32_t* recordNo, uint16_t mode);
ZB_API int32_t ZB_CALL ZBDDRPUTX(int16_t data, const void* image, uint32_t* recordNo, uint16_t mode);
ZB_API int32_t ZB_CALL ZBDDRDEL(int16_t data, int32_t recordNo);
ZB_API int32_t ZB_CALL ZBDDRUNDEL(int16_t data, int32_t recordNo);
ZB_API int32_t ZB_CALL ZBDDRSTAT(int16_t data);
ZB_API int32_t ZB_CALL ZBDDRCLEAR(int16_t data);
ZB_API int32_t ZB_CALL ZBDDRNUM(int16_t data, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDDRINFO(int16_t data, ZbDataRecordInfo* info);
ZB_API int32_t ZB_CALL ZBDDRINFOH(int16_t data, ZbDataRecordInfo* info);
ZB_API int32_t ZB_CALL ZBDDFLUSH(int16_t data);
ZB_API int32_t ZB_CALL ZBDDFGET(int16_t data, int16_t fieldNo, void* value);
ZB_API int32_t ZB_CALL ZBDDFGETS(int16_t data, int16_t fieldNo, char* text);
ZB_API int32_t ZB_CALL ZBDDFPUT(int16_t data, int16_t fieldNo, const void* value);
ZB_API int32_t ZB_CALL ZBDDFPUTS(int16_t data, int16_t fieldNo, const char* text);
ZB_API int32_t ZB_CALL ZBDDFNGET(int16_t data, const char* name, void* value);
ZB_API int32_t ZB_CALL ZBDDFNGETS(int16_t data, const char* name, char* text);
ZB_API int32_t ZB_CALL ZBDDFNPUT(int16_t data, const char* name, const void* value);
ZB_API int32_t ZB_CALL ZBDDFNPUTS(int16_t data, const char* name, const char* text);
ZB_API int32_t ZB_CALL ZBDDFNAM2NO(int16_t data, int16_t* fieldNo, const char* name);
ZB_API int32_t ZB_CALL ZBDDFNO2NAM(int16_t data, char* name, int16_t fieldNo);
ZB_API int32_t ZB_CALL ZBDDFINFO(int16_t data, uint16_t* maxWidth, ZbFieldSpec* specs);
ZB_API int32_t ZB_CALL ZBDDLOCK(int16_t data, int16_t kind, uint16_t* conflict);
ZB_API int32_t ZB_CALL ZBDDUNLOCK(int16_t data, int16_t kind, uint16_t* conflict);
ZB_API int32_t ZB_CALL ZBDDRLOCK(int16_t data, uint32_t recordNo, int16_t kind, uint16_t* conflict);
ZB_API int32_t ZB_CALL ZBDDHLOCK(int16_t anything);

/* ---- dates ---- */

ZB_API int32_t ZB_CALL ZBCDSTYLE(uint16_t style);
ZB_API int32_t ZB_CALL ZBCDGSTYLE(uint16_t* style, char* name);
ZB_API int32_t ZB_CALL ZBCDI2L(int32_t* day, int16_t year, int16_t month, int16_t dayOfMonth);
ZB_API int32_t ZB_CALL ZBCDL2I(int16_t* year, int16_t* month, int16_t* dayOfMonth, int32_t day);
ZB_API int32_t ZB_CALL ZBCDI2S(char* text, int16_t style, int16_t year, int16_t month, int16_t dayOfMonth);
ZB_API int32_t ZB_CALL ZBCDS2I(int16_t* year, int16_t* month, int16_t* dayOfMonth, const char* text,
                               int16_t style);
ZB_API int32_t ZB_CALL ZBCDS2LX(int32_t* day, const char* text, int16_t style);
ZB_API int32_t ZB_CALL ZBCDL2SX(char* text, int16_t style, int32_t day);
ZB_API int32_t ZB_CALL ZBCDS2S(char* text, int16_t styleOut, const char* textIn, int16_t styleIn);
ZB_API int32_t ZB_CALL ZBCDSDIFF(uint32_t* days, const char* text1, int16_t style1, const char* text2,
                                 int16_t style2);
ZB_API int32_t ZB_CALL ZBCDL2DOW(int16_t* dayOfWeek, int32_t day);
ZB_API int32_t ZB_CALL ZBCDS2DOW(int16_t* dayOfWeek, const char* text, int16_t style);
ZB_API int32_t ZB_CALL ZBCDSDAY(char* name, int16_t dayOfWeek);
ZB_API int32_t ZB_CALL ZBCDS2DAY(char* name, const char* text, int16_t style);
ZB_API int32_t ZB_CALL ZBCDSMONTH(char* name, int16_t month);
ZB_API int32_t ZB_CALL ZBCDS2MON(char* name, const char* text, int16_t style);
ZB_API int32_t ZB_CALL ZBCDILEAP(int16_t year);
ZB_API int32_t ZB_CALL ZBCDSLEAP(const char* text, int16_t style);
ZB_API int32_t ZB_CALL ZBCDIPERM(int16_t* days, int16_t year, int16_t month);
ZB_API int32_t ZB_CALL ZBCDSPERM(int16_t* days, const char* text, int16_t style);
ZB_API int32_t ZB_CALL ZBCDSVALID(const char* text, int16_t style);
ZB_API int32_t ZB_CALL ZBCDIGET(int16_t* year, int16_t* month, int16_t* dayOfMonth, int16_t* dayOfWeek);
ZB_API int32_t ZB_CALL ZBCDSGET(char* text, int16_t style);

/* ---- times ---- */

ZB_API int32_t ZB_CALL ZBCTI2S(char* text, int16_t style, int16_t hours, int16_t minutes, int16_t seconds);
ZB_API int32_t ZB_CALL ZBCTS2I(int16_t* hours, int16_t* minutes, int16_t* seconds, const char* text,
                               int16_t style);
ZB_API int32_t ZB_CALL ZBCTSVALID(const char* text, int16_t style);
ZB_API int32_t ZB_CALL ZBCTSDIFF(uint32_t* seconds, const char* text1, int16_t style1, const char* text2,
                                 int16_t style2);
ZB_API int32_t ZB_CALL ZBCTIGET(int16_t* hours, int16_t* minutes, int16_t* seconds, int16_t* hundredths);
ZB_API int32_t ZB_CALL ZBCTSGET(char* text, int16_t style);

/* ---- DBT memo files ---- */

ZB_API int32_t ZB_CALL ZBDTCREATE(const char* path);
ZB_API int32_t ZB_CALL ZBDTCREATEX(const char* path, int16_t multiplier, int16_t dialect);
ZB_API int32_t ZB_CALL ZBDTOPENX(int16_t* memo, const char* path, uint16_t mode);
ZB_API int32_t ZB_CALL ZBDTCLOSE(int16_t memo);
ZB_API int32_t ZB_CALL ZBDTHGET(int16_t memo);
ZB_API int32_t ZB_CALL ZBDTRGET(int16_t memo, int32_t block, void** text, int16_t option);
ZB_API int32_t ZB_CALL ZBDTRGETH(int16_t memo, int32_t block, ZbBlock* text, int16_t option);
ZB_API int32_t ZB_CALL ZBDTRPUT(int16_t memo, int32_t* block, const char* text, uint16_t options);
ZB_API int32_t ZB_CALL ZBDTINFO(int16_t memo, ZbDbtInfo* info);
ZB_API int32_t ZB_CALL ZBDTPACK(int16_t data, int16_t* memo);

/* ---- FPT memo files ---- */

ZB_API int32_t ZB_CALL ZBDWCREATE(const char* path, int16_t size);
ZB_API int32_t ZB_CALL ZBDWOPENX(int16_t* memo, const char* path, uint16_t mode);
ZB_API int32_t ZB_CALL ZBDWCLOSE(int16_t memo);
ZB_API int32_t ZB_CALL ZBDWHGET(int16_t memo);
ZB_API int32_t ZB_CALL ZBDWRGET(int16_t memo, int32_t block, void** text);
ZB_API int32_t ZB_CALL ZBDWRPUT(int16_t memo, int32_t* block, const char* text, int16_t option);
ZB_API int32_t ZB_CALL ZBDWINFO(int16_t memo, ZbFptInfo* info);
ZB_API int32_t ZB_CALL ZBDWPACK(int16_t data, int16_t* memo);

/* ---- expressions ---- */

ZB_API int32_t ZB_CALL ZBDXEVAL(int16_t data, char* expression, ZbEvalResult* result);
ZB_API int32_t ZB_CALL ZBDXADD(char* name, ZbUserFunction function);
ZB_API int32_t ZB_CALL ZBDXDEL(char* name);
ZB_API int32_t ZB_CALL ZBDXLIST(char* name, int16_t index);
ZB_API int32_t ZB_CALL ZBDXINFO(int16_t* count, int16_t* longestName);
ZB_API int32_t ZB_CALL ZBDXPROC(void);
ZB_API int32_t ZB_CALL ZBDXVGET(uint16_t* value);

/* ---- NDX indexes ---- */

ZB_API int32_t ZB_CALL ZBDNCREATE(const char* name, int16_t keyType, char* expression, int16_t keyLength);
ZB_API int32_t ZB_CALL ZBDNOPENX(uint16_t* index, const char* name, uint16_t mode);
ZB_API int32_t ZB_CALL ZBDNCLOSE(int16_t index);
ZB_API int32_t ZB_CALL ZBDNINFO(int16_t index, ZbNdxInfo* info);
ZB_API int32_t ZB_CALL ZBDNHGET(int16_t index);
ZB_API int32_t ZB_CALL ZBDNEXPR(int16_t index, char* text);
ZB_API int32_t ZB_CALL ZBDNINDEX(int16_t data, const char* name, int16_t keyType, char* expression,
                                 int16_t keyLength);
ZB_API int32_t ZB_CALL ZBDNKADD(int16_t index, const void* key, uint32_t recordNo);
ZB_API int32_t ZB_CALL ZBDNKDEL(int16_t index, const void* key, uint32_t recordNo);
ZB_API int32_t ZB_CALL ZBDNKFIND(int16_t index, void* key, uint32_t* recordNo, int16_t mode);
ZB_API int32_t ZB_CALL ZBDNKTOP(int16_t index, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDNKBOT(int16_t index, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDNKNEXT(int16_t index, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDNKPREV(int16_t index, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDNKCUR(int16_t index, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDNKMAKE(int16_t data, int16_t index, void** key);
ZB_API int32_t ZB_CALL ZBDNKMAKEH(int16_t data, int16_t index, ZbBlock* key);
ZB_API int32_t ZB_CALL ZBDNKNUM(void* key, double value);
ZB_API int32_t ZB_CALL ZBDNKDATE(void* key, const char* text, int16_t style);
ZB_API int32_t ZB_CALL _ZBDNKCMP(const void* a, const void* b, int16_t type, int16_t length);

/* ---- NTX indexes ---- */

ZB_API int32_t ZB_CALL ZBDCCREATE(const char* name, int16_t keyType, char* expression, int16_t keyLength,
                                  int16_t decimals);
ZB_API int32_t ZB_CALL ZBDCOPENX(uint16_t* index, const char* name, uint16_t mode);
ZB_API int32_t ZB_CALL ZBDCCLOSE(int16_t index);
ZB_API int32_t ZB_CALL ZBDCINFO(int16_t index, ZbNtxInfo* info);
ZB_API int32_t ZB_CALL ZBDCHGET(int16_t index);
ZB_API int32_t ZB_CALL ZBDCEXPR(int16_t index, char* text);
ZB_API int32_t ZB_CALL ZBDCINDEX(int16_t data, const char* name, int16_t keyType, char* expression,
                                 int16_t keyLength, int16_t decimals);
ZB_API int32_t ZB_CALL ZBDCKADD(int16_t index, const void* key, uint32_t recordNo);
ZB_API int32_t ZB_CALL ZBDCKDEL(int16_t index, const void* key, uint32_t recordNo);
ZB_API int32_t ZB_CALL ZBDCKFIND(int16_t index, void* key, uint32_t* recordNo, int16_t mode);
ZB_API int32_t ZB_CALL ZBDCKTOP(int16_t index, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDCKBOT(int16_t index, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDCKNEXT(int16_t index, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDCKPREV(int16_t index, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDCKCUR(int16_t index, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDCKMAKE(int16_t data, int16_t index, void** key);
ZB_API int32_t ZB_CALL ZBDCKMAKEH(int16_t data, int16_t index, ZbBlock* key);
ZB_API int32_t ZB_CALL ZBDCKNUM(int16_t index, void* key, double value);
ZB_API int32_t ZB_CALL ZBDCKDATE(void* key, const char* text, int16_t style);

/* ---- IDX indexes ---- */

ZB_API int32_t ZB_CALL ZBDICREATE(const char* name, uint16_t typeWord, char* expression, int16_t keyLength);
ZB_API int32_t ZB_CALL ZBDIOPENX(uint16_t* index, const char* name, uint16_t mode);
ZB_API int32_t ZB_CALL ZBDICLOSE(int16_t index);
ZB_API int32_t ZB_CALL ZBDIINFO(int16_t index, ZbIdxInfo* info);
ZB_API int32_t ZB_CALL ZBDIHGET(int16_t index);
ZB_API int32_t ZB_CALL ZBDIEXPR(int16_t index, char* text);
ZB_API int32_t ZB_CALL ZBDIKTYPE(int16_t index, int16_t keyType);
ZB_API int32_t ZB_CALL ZBDIINDEX(int16_t data, const char* name, uint16_t typeWord, char* expression,
                                 int16_t keyLength);
ZB_API int32_t ZB_CALL ZBDIKADD(int16_t index, const void* key, uint32_t recordNo);
ZB_API int32_t ZB_CALL ZBDIKDEL(int16_t index, const void* key, uint32_t recordNo);
ZB_API int32_t ZB_CALL ZBDIKFIND(int16_t index, void* key, uint32_t* recordNo, int16_t mode);
ZB_API int32_t ZB_CALL ZBDIKTOP(int16_t index, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDIKBOT(int16_t index, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDIKNEXT(int16_t index, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDIKPREV(int16_t index, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDIKCUR(int16_t index, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDIKMAKE(int16_t data, int16_t index, void** key);
ZB_API int32_t ZB_CALL ZBDIKMAKEH(int16_t data, int16_t index, ZbBlock* key);
ZB_API int32_t ZB_CALL ZBDIKNUM(void* key, double value);
ZB_API int32_t ZB_CALL ZBDIKDATE(void* key, const char* text, int16_t style);

/* ---- MDX files and tags ---- */

ZB_API int32_t ZB_CALL ZBDMCREATE(const char* path, int32_t multiplier);
ZB_API int32_t ZB_CALL ZBDMCREATEX(const char* path, int16_t multiplier, uint16_t option);
ZB_API int32_t ZB_CALL ZBDMOPENX(int16_t* file, const char* path, uint16_t mode);
ZB_API int32_t ZB_CALL ZBDMCLOSE(int16_t file);
ZB_API int32_t ZB_CALL ZBDMINFO(int16_t file, ZbMdxInfo* info);
ZB_API int32_t ZB_CALL ZBDMTNEW(int16_t file, const char* tagName, uint32_t typeWord, char* expression,
                                int32_t keyLength);
ZB_API int32_t ZB_CALL ZBDMTERASE(int16_t file, const char* tagName);
ZB_API int32_t ZB_CALL ZBDMTUSE(int32_t* tag, uint16_t file, const char* tagName);
ZB_API int32_t ZB_CALL ZBDMTUSEX(int32_t* tag, uint16_t file, int16_t tagNumber);
ZB_API int32_t ZB_CALL ZBDMTCLOSE(int32_t tag);
ZB_API int32_t ZB_CALL ZBDMTINFO(int32_t tag, ZbMdxTagInfo* info);
ZB_API int32_t ZB_CALL ZBDMTEXPR(int32_t tag, char* text);
ZB_API int32_t ZB_CALL ZBDMTHGET(int32_t tag);
ZB_API int32_t ZB_CALL ZBDMTINDEX(int16_t data, uint16_t file, const char* tagName, uint32_t typeWord,
                                  char* expression, int32_t keyLength);
ZB_API int32_t ZB_CALL ZBDMKADD(int32_t tag, const void* key, uint32_t recordNo);
ZB_API int32_t ZB_CALL ZBDMKDEL(int32_t tag, const void* key, uint32_t recordNo);
ZB_API int32_t ZB_CALL ZBDMKFIND(int32_t tag, void* key, uint32_t* recordNo, int16_t mode);
ZB_API int32_t ZB_CALL ZBDMKTOP(int32_t tag, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDMKBOT(int32_t tag, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDMKNEXT(int32_t tag, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDMKPREV(int32_t tag, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDMKCUR(int32_t tag, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDMKMAKE(int16_t data, int32_t tag, void** key);
ZB_API int32_t ZB_CALL ZBDMKMAKEH(int16_t data, int32_t tag, ZbBlock* key);
ZB_API int32_t ZB_CALL ZBDMKNUM(void* key, double value);
ZB_API int32_t ZB_CALL ZBDMKDATE(void* key, const char* text, int16_t style);

#ifdef __cplusplus
}
#endif

#endif
