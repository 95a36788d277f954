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

/* A mode is a dialect in its low byte and the bits above it, in one enumeration so
 * that C++ joins them without a warning: ZB_DialectClassic | ZB_Shared. */
enum ZbMode {
    ZB_DialectClassic = 1,
    ZB_DialectDb4 = 2,
    ZB_DialectClassicAlt = 3,
    ZB_DialectFox128 = 4,
    ZB_DialectWide = 5,
    ZB_DialectWideChar = 6,
    ZB_DialectEofFill = 7,
    ZB_DialectFox255 = 8,
    ZB_DialectPaddedHeader = 9,

    ZB_ReadOnly = 0x0100,   /* open for reading only */
    ZB_Production = 0x0200, /* creation: set the production-index byte */
    ZB_Shared = 0x0400,     /* let others read and write */
    ZB_OpenShared = 0x0800  /* as ZB_Shared */
};

/* Options of the memo calls. */
enum ZbMemoOption {
    ZB_MemoNew = 0,          /* ZBDTRPUT, ZBDWRPUT: write a new memo */
    ZB_MemoReplace = 0x0100, /* ZBDTRPUT, ZBDWRPUT: replace the memo at the block given */
    ZB_MemoUnwrap = 0x0100   /* ZBDTRGET, ZBDTRGETH: take the soft returns out */
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
 * Two environment variables matter. ZB_TODAY, as YYYY-MM-DD, is the date of today
 * for the library. ZB_READS=pread, which means nothing on Windows, makes every
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

/* Closes every object, whatever comes of each close, and ends the library: an
 * object whose close fails is given up. User functions are forgotten; blocks that
 * the caller was given stay his. A pending failure doesn't stop it.
 * ZB_ErrNotAttached if the library isn't started. */
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

/* ---- data files ----
 *
 * A data file has one record in memory, the record buffer: records are read
 * into it and written from it, and the field functions work on it. The number
 * of the record that it holds is the current record.
 *
 * Record numbers are held against the record count in memory, which is that of
 * the file at the open or at the last refresh: by ZBDDHGET, or by a file lock of
 * kind 1 to 4. Before that a record that another program has appended can't be
 * read, and a program that appends without a refresh may write over it.
 *
 * Every function that takes a data handle returns ZB_ErrBadHandle for one that
 * isn't open, a failure that stands before it has looked at the handle, and
 * ZB_ErrOpen after ZBDQCLOSE. A null output is looked at first of all, also
 * while a failure stands. Outputs are left alone on failure, unless told.
 */

/* Opens a data file. The low byte of `mode` is the dialect (0 means 1), to which
 * ZB_ReadOnly, ZB_Shared or ZB_OpenShared is added. A file with a padded header
 * is known by itself and gets dialect 9 whatever the mode says; otherwise the
 * mode is believed, so far as the version byte allows it. A file that can't be
 * had as asked is opened for reading and shared, which ZBDDINFO shows and the
 * first write meets as ZB_ErrReadOnly.
 *
 * ZB_WarnFileSize: the file is open, but its length isn't what the header says.
 * ZB_ErrOpen; ZB_ErrBadName for an empty name or one of more than 260 bytes;
 * ZB_ErrNoSlot; ZB_ErrMemory; ZB_ErrRead for a file shorter than its header;
 * ZB_ErrBadOption for a dialect above 9; ZB_ErrFileType where the version
 * doesn't fit the dialect or a memo field; ZB_ErrHeaderLength;
 * ZB_ErrProductionFlag in dialects 2 and 8; ZB_ErrFieldName; ZB_ErrFieldType;
 * ZB_ErrRecordLength where the widths don't add up to it. On failure nothing
 * stays open and the handle is 65535; a null argument or a failure that stood
 * before leave it alone. */
ZB_API int32_t ZB_CALL ZBDDOPENX(uint16_t* handle, const char* name, uint16_t mode);

/* Closes a data file, and with it ends all its locks. When records have been
 * written it first writes the day of the month into the header's date byte.
 * After a failure the file is still open. */
ZB_API int32_t ZB_CALL ZBDDCLOSE(int16_t data);

/* Reads the record count anew from the file. ZB_ErrRead, ZB_ErrSeek. */
ZB_API int32_t ZB_CALL ZBDDHGET(int16_t data);

/* Gives the record count in memory, deleted records included. */
ZB_API int32_t ZB_CALL ZBDDSIZE(int16_t data, uint32_t* count);

/* Writes the date of the last update as text in a style from 1 to 15; `text`
 * holds 11 bytes. The file keeps one byte b of it, told as day b of month b of
 * the year 1900 + b: ZB_ErrBadDate where there is no such date.
 * ZB_ErrBadOption for an unknown style. */
ZB_API int32_t ZB_CALL ZBDDLUD(int16_t data, char* text, int32_t style);

/* Tells about an open data file. */
ZB_API int32_t ZB_CALL ZBDDINFO(int16_t data, ZbDataInfo* info);

/* Creates an empty data file, replacing a file of that name without a question;
 * open it afterwards with ZBDDOPENX. `mode` is the dialect, 1 to 9 (0 is refused
 * here), and ZB_Production sets the production-index byte. `specs` describes the
 * fields and is changed in place: names and types become upper case, and D
 * fields get width 8, L 1, M 10, and decimals 0, as C fields do. A record begins
 * with the delete flag, one byte, which counts for the limit of its length.
 *
 *   dialect            1 3 9   2     4     5     6     7     8
 *   most fields        128     255   128   1023  1023  512   255
 *   widest C field     254     254   254   254   2048  254   254
 *   widest N field     19      20    20    19    19    19    20
 *   most decimals      15      18    18    15    15    15    18     and width - 2
 *   F fields           no      yes   yes   no    no    no    yes    limits as N
 *   record length      4000    4000  4000  4000  8192  4000  4000
 *
 * (The header's length is kept in 15 bits, so that a file of 1023 fields can be
 * created but not opened.)
 *
 * Checked in this order, before anything is written: a pending code;
 * ZB_ErrNullPointer; ZB_ErrFieldCount for a count below 1; ZB_ErrFileType for an
 * unknown mode; ZB_ErrFieldCount over the dialect's limit; then field by field
 * ZB_ErrFieldName (1 to 10 characters), ZB_ErrFieldType, ZB_ErrFieldWidth,
 * ZB_ErrFieldDecimals, ZB_ErrRecordLength. Then ZB_ErrBadName, ZB_ErrOpen and
 * ZB_ErrWrite come from the file; a failed write leaves the file as far as it
 * got, and open until the process ends. */
ZB_API int32_t ZB_CALL ZBDDCREATE(const char* name, int16_t fieldCount, ZbFieldSpec* specs, int16_t mode);

/* Removes the deleted records for good: writes the live ones to a new file and
 * puts it in the place of the old one, which stays as the backup, its extension
 * replaced by .BAK (an older backup is erased). The work file is the first of
 * 0.DBF, 1.DBF, ... in the file's directory that doesn't exist. Memo files and
 * indexes aren't touched: memo block numbers stay good, indexes don't.
 *
 * The file is closed and opened again, in its dialect, for writing and shared,
 * whatever it was before: `*data` gets the new handle, which may be another one.
 * The production-index byte is 0 afterwards, and there is no end mark. The whole
 * file is locked while pack runs, if the lock can be had, but a refusal goes
 * unnoticed: lock first where others may be writing.
 *
 * ZB_ErrReadOnly; ZB_ErrBadName where the backup's name would be the file's own
 * or one of the names would be too long; whatever ZBDDCREATE says of a structure
 * over the dialect's limits; ZB_ErrRecordLength where a damaged field table gives
 * a record that no creation makes; and the codes of reading, writing, erasing and
 * renaming. A failure is final and nothing is tidied up: the work file may be
 * left, the old data are always whole under the file's own name or the backup's,
 * and once the closes have begun the handle may be dead. When the last step, the
 * open, fails, `*data` is -1. */
ZB_API int32_t ZB_CALL ZBDDPACK(int16_t* data);

/* Reads a record into the record buffer and makes it the current one.
 * ZB_WarnDeleted: it was read, and its delete flag isn't blank. ZB_ErrSeek for a
 * number outside 1 to the record count; ZB_ErrRead for a record that the file
 * doesn't hold in full, after which the buffer's contents are not defined. */
ZB_API int32_t ZB_CALL ZBDDRGET(int16_t data, int32_t recordNo);

/* The same, and puts the record's values into `image`, which may be null: the
 * delete flag in one byte, then without gaps for each field
 *   C, D  width + 1 bytes of text with its terminator; a date in the current style
 *   N, F  8 bytes, a double
 *   M     4 bytes, an unsigned block number
 *   L     1 byte: 0, 1 or '?'
 * A date text of a long style, of 10 characters, runs into the room of the next
 * field, which then writes over its end; behind a last field the image must have
 * 2 bytes more for it. A field that fails ends the walk with the code of
 * ZBDDFGET, the fields behind it being left alone. */
ZB_API int32_t ZB_CALL ZBDDRGETX(int16_t data, void* image, int32_t recordNo);

/* Writes the record buffer to the file, as a live record. Mode 0 appends it and
 * stores its number in `recordNo`; mode 256 writes it over the record of the
 * number there, which is held against nothing: beyond the end the file grows,
 * the record count doesn't. The record becomes the current one.
 *
 * ZB_ErrReadOnly; ZB_ErrBadOption for another mode, with nothing written;
 * ZB_ErrSeek for an update of record 0, or for a place beyond 2 GiB;
 * ZB_ErrWrite. An append that fails leaves the record count in memory raised by
 * one, and `recordNo` set. */
ZB_API int32_t ZB_CALL ZBDDRPUT(int16_t data, uint32_t* recordNo, uint16_t mode);

/* The same, with the values of `image` put into the record buffer first, unless
 * it is null. It is laid out as for ZBDDRGETX. A value that is refused ends the
 * call with the code of ZBDDFPUT before anything is written to the file, and
 * leaves the buffer with the fields before it changed. ZB_WarnTruncated and
 * ZB_WarnRounded come back with the record written. */
ZB_API int32_t ZB_CALL ZBDDRPUTX(int16_t data, const void* image, uint32_t* recordNo, uint16_t mode);

/* Reads a record, sets or clears its delete flag and writes it back. It becomes
 * the current one. A record that is already as wanted isn't written, but the
 * file counts as changed. ZB_ErrReadOnly; ZB_ErrSeek for a number outside 1 to
 * the record count; ZB_ErrRead, ZB_ErrWrite. */
ZB_API int32_t ZB_CALL ZBDDRDEL(int16_t data, int32_t recordNo);
ZB_API int32_t ZB_CALL ZBDDRUNDEL(int16_t data, int32_t recordNo);

/* ZB_WarnDeleted if the delete flag in the record buffer is '*', else 0. */
ZB_API int32_t ZB_CALL ZBDDRSTAT(int16_t data);

/* Fills the record buffer with blanks. The current record stays. */
ZB_API int32_t ZB_CALL ZBDDRCLEAR(int16_t data);

/* Gives the number of the current record, 0 when there is none. */
ZB_API int32_t ZB_CALL ZBDDRNUM(int16_t data, uint32_t* recordNo);

/* Tells the size of a record, the number of fields and where the record buffer
 * is: its address, which is good until the file is closed, or its block handle.
 * The block stays the library's. */
ZB_API int32_t ZB_CALL ZBDDRINFO(int16_t data, ZbDataRecordInfo* info);
ZB_API int32_t ZB_CALL ZBDDRINFOH(int16_t data, ZbDataRecordInfo* info);

/* Always ZB_WarnNoFlush, also over a failure that stands: every write has gone
 * to the system already. The handle isn't looked at. */
ZB_API int32_t ZB_CALL ZBDDFLUSH(int16_t data);

/* Fields. These calls convert between the record in memory and the caller's
 * values; a change reaches the file with the next put of the record, and so it is
 * allowed in a file open for reading only. Fields count from 0.
 *
 *   type   in the record                    the caller's value
 *   C      text, padded with blanks         terminated text; width + 1 bytes of room
 *   D      yyyymmdd, or 8 blanks            terminated text in the current date style;
 *                                           11 bytes of room serve every style
 *   N, F   number text, to the right        double
 *   L      T or F, or a blank               one byte: 1 true, 0 false, '?' blank
 *   M      block number, or 10 blanks       uint32_t
 *
 * The S forms treat every field as C: they move its bytes, whatever its type. The
 * forms with an N find the field by its name, as ZBDDFNAM2NO does. All give
 * ZB_ErrBadHandle, ZB_ErrFieldCount for a field number out of range and
 * ZB_ErrFieldName for a name not found, in this order before the check of the
 * value's pointer (but a null name comes first).
 *
 * Reading. Trailing blanks of C fields stay. A blank D field gives as many blanks
 * as a date of the current style has characters, a blank number or memo field 0,
 * a blank logical '?': but D and L fields count as blank only when nothing but
 * blanks follows them up to the end of the record. A blank D field before a
 * filled one gives ZB_ErrBadDate, and a blank L field there leaves the value
 * alone. A D field that isn't a date gives ZB_ErrBadDate with its 8 characters in
 * the value. T, Y, y and the byte 1 are true, F, f, N and n false; any other
 * byte, t among them, leaves the value alone. */
ZB_API int32_t ZB_CALL ZBDDFGET(int16_t data, int16_t fieldNo, void* value);
ZB_API int32_t ZB_CALL ZBDDFGETS(int16_t data, int16_t fieldNo, char* text);

/* Writing. A text longer than its C field is cut, with ZB_WarnTruncated. A D
 * field takes a date in the current style, or blanks; ZB_ErrBadDate for anything
 * else. A number is formatted to the field's width and decimals, rounded as
 * printf does it: ZB_ErrFieldValue when the result is above the field's largest
 * value, and ZB_WarnRounded when it isn't the number given. There is no lower
 * bound: of a negative number that is too long the first characters are stored.
 * An L field takes T, t, Y, y or the byte 1 for true, F, f, N, n or the byte 0 for
 * false, and gives ZB_ErrFieldValue for any other byte. On a failure the field is
 * as it was. */
ZB_API int32_t ZB_CALL ZBDDFPUT(int16_t data, int16_t fieldNo, const void* value);
ZB_API int32_t ZB_CALL ZBDDFPUTS(int16_t data, int16_t fieldNo, const char* text);
ZB_API int32_t ZB_CALL ZBDDFNGET(int16_t data, const char* name, void* value);
ZB_API int32_t ZB_CALL ZBDDFNGETS(int16_t data, const char* name, char* text);
ZB_API int32_t ZB_CALL ZBDDFNPUT(int16_t data, const char* name, const void* value);
ZB_API int32_t ZB_CALL ZBDDFNPUTS(int16_t data, const char* name, const char* text);

/* The number of the field of that name, compared in full and without regard to
 * case. ZB_ErrFieldName when there is none; `fieldNo` then holds the number of
 * fields. */
ZB_API int32_t ZB_CALL ZBDDFNAM2NO(int16_t data, int16_t* fieldNo, const char* name);

/* The name of a field: `name` needs 11 bytes. ZB_ErrFieldCount for a number out of
 * range. */
ZB_API int32_t ZB_CALL ZBDDFNO2NAM(int16_t data, char* name, int16_t fieldNo);

/* Describes all fields: `specs` must have room for as many as ZBDDRINFO counts.
 * `maxWidth` gets the width of the widest. `decimals` is the descriptor's byte,
 * which for a C field is the high byte of the width. */
ZB_API int32_t ZB_CALL ZBDDFINFO(int16_t data, uint16_t* maxWidth, ZbFieldSpec* specs);

/* Locks a data file against other programs and other handles.
 *   1  the header: whoever appends
 *   2  the whole file, header included
 *   3  all records, and readers, but not the header
 *   4  shared: taken by up to 62 readers, refused while a record is locked
 *   5  only asks whether there are no readers; nothing stays locked
 * Kinds 1 to 4 refresh the record count. Nothing waits: a lock that can't be
 * had gives 100 in `conflict`, which may be null and is otherwise 0, and the
 * result is 0 all the same. Other kinds do nothing. */
ZB_API int32_t ZB_CALL ZBDDLOCK(int16_t data, int16_t kind, uint16_t* conflict);

/* Gives up a lock of kind 1 to 4; another kind gives up the range that was asked
 * for last. `conflict` may be null and is set to 0. A lock that isn't held is a
 * failure, of the platform's number. */
ZB_API int32_t ZB_CALL ZBDDUNLOCK(int16_t data, int16_t kind, uint16_t* conflict);

/* Locks one record, by kind:
 *   5  only asks whether it could be locked
 *   6  gives it up; with recordNo 0 all that this handle holds
 *   7  locks it; once more is no harm and counts once
 * A lock that can't be had gives 100 in `conflict`, which may be null and is
 * otherwise 0; the result is 0. So does the 16385th lock of a handle, whose byte
 * then stays locked until the file is closed. The record count isn't refreshed.
 * Records up to 536870911 have a byte to lock. Other kinds do nothing. */
ZB_API int32_t ZB_CALL ZBDDRLOCK(int16_t data, uint32_t recordNo, int16_t kind, uint16_t* conflict);

/* Does nothing and returns 0. */
ZB_API int32_t ZB_CALL ZBDDHLOCK(int16_t anything);

/* ---- dates ---- */

/* A date has three forms, which the names of the functions tell by a letter:
 *
 *   I  three integers: year 0 to 9999, month 1 to 12, day of the month
 *   L  a day number: 1 is 1 January of the year 1, the largest is 3652059
 *   S  a text in one of 15 styles, zero-terminated
 *
 *    1  "Gregorian (mm/dd/yy)"       9  "British (dd/mm/yyyy)"
 *    2  "Gregorian (mm/dd/yyyy)"    10  "French (dd/mm/yy)"
 *    3  "Julian (yyyy/ddd)"         11  "French (dd/mm/yyyy)"
 *    4  "dBASE (yyyymmdd)"          12  "Italian (dd-mm-yy)"
 *    5  "DMY (ddmmyy)"              13  "Italian (dd-mm-yyyy)"
 *    6  "German (dd.mm.yy)"         14  "ENSI (yy.mm.dd)"
 *    7  "German (dd.mm.yyyy)"       15  "ENSI (yyyy.mm.dd)"
 *    8  "British (dd/mm/yy)"
 *
 * ddd is the day of the year. A year of two digits belongs to 1900 to 1999. The
 * buffer for a date takes 11 bytes.
 *
 * Unless something else is said, the functions need no open file, return a
 * standing failure without acting, and write their outputs only when they
 * succeed. Their codes are ZB_ErrBadOption for a style outside 1 to 15,
 * ZB_ErrBadDate for a date, month, weekday or day number out of range, and
 * ZB_ErrNullPointer. A function made of two steps takes them in order, so that
 * a bad text is reported before a null output. Days of a month are counted with
 * the February of the year that a date function looked at last; only a text in
 * style 3 shows it (see ZBCDS2I). */

/* Sets the client's date style. ZB_ErrBadOption leaves it as it was. On success
 * the code that stands is kept and returned; a standing failure hinders
 * nothing. */
ZB_API int32_t ZB_CALL ZBCDSTYLE(uint16_t style);

/* Tells the client's date style and its name as above; `name` takes 23 bytes.
 * After a ZBDINIT that refused its table size that is 0 and an empty name. The
 * code is kept as by ZBCDSTYLE. */
ZB_API int32_t ZB_CALL ZBCDGSTYLE(uint16_t* style, char* name);

/* The day number of a date: (year - 1) * 365.2425 cut to a whole number, and the
 * day of the year. In 2000 of the years 1 to 9999, 2005 and 2025 among them,
 * that is one day less than the true count and in 800 years one more; 1965 to
 * 2004 are exact. 1 January of the year 0 gives -364. */
ZB_API int32_t ZB_CALL ZBCDI2L(int32_t* day, int16_t year, int16_t month, int16_t dayOfMonth);

/* The date of a day number 1 to 3652059, by the true calendar: for a year that
 * ZBCDI2L counts low it is the day before the one that the number came from.
 * 800 numbers, each a 1 January, are refused with ZB_ErrBadDate; the first is
 * 74144. */
ZB_API int32_t ZB_CALL ZBCDL2I(int16_t* year, int16_t* month, int16_t* dayOfMonth, int32_t day);

/* The text of a date in a style. The date is checked before the style. */
ZB_API int32_t ZB_CALL ZBCDI2S(char* text, int16_t style, int16_t year, int16_t month, int16_t dayOfMonth);

/* Reads a text of at most 15 characters in a style. The result is 0, or
 * ZB_KeyEmpty with all three outputs 0 for a blank date: nothing but blanks (in
 * any style, at any length), or the style's separators alone.
 *
 * A text is as long as the style's form; one with two separators may be up to
 * two characters shorter. Blanks count for the length, except in style 4, and
 * then go. What is left is read by position: separators are never looked at (in
 * styles 1 to 3 a backslash is a slash), a field ends at its first character
 * that is no digit, and is 0 where the text has ended. So "12/ 1/95" in style 1
 * is 1 December 1905.
 *
 * In style 3 the day of the year is turned into month and day with the February
 * of the year that was looked at before: call ZBCDILEAP for the year first.
 *
 * ZB_ErrBadDate for a wrong length or a date that doesn't exist; in style 4 a
 * wrong length is shown to the person at the machine as well. */
ZB_API int32_t ZB_CALL ZBCDS2I(int16_t* year, int16_t* month, int16_t* dayOfMonth, const char* text,
                               int16_t style);

/* The day number of a text: ZBCDS2I, then ZBCDI2L. A blank date has none
 * (ZB_ErrBadDate). */
ZB_API int32_t ZB_CALL ZBCDS2LX(int32_t* day, const char* text, int16_t style);

/* The text of a day number: ZBCDL2I, then ZBCDI2S. */
ZB_API int32_t ZB_CALL ZBCDL2SX(char* text, int16_t style, int32_t day);

/* From one style to another: ZBCDS2I, then ZBCDI2S. The texts may be one buffer.
 * A blank date gives ZB_ErrBadDate. */
ZB_API int32_t ZB_CALL ZBCDS2S(char* text, int16_t styleOut, const char* textIn, int16_t styleIn);

/* The days between two dates, whichever is the later, by ZBCDS2LX of each. */
ZB_API int32_t ZB_CALL ZBCDSDIFF(uint32_t* days, const char* text1, int16_t style1, const char* text2,
                                 int16_t style2);

/* The day of the week of a day number 1 to 3652059; 0 is Sunday. */
ZB_API int32_t ZB_CALL ZBCDL2DOW(int16_t* dayOfWeek, int32_t day);

/* The day of the week of a text: ZBCDS2LX, then ZBCDL2DOW. It is as far from the
 * true one as the day number is from the true count. */
ZB_API int32_t ZB_CALL ZBCDS2DOW(int16_t* dayOfWeek, const char* text, int16_t style);

/* The English name of a day of the week, 0 to 6; `name` takes 10 bytes. */
ZB_API int32_t ZB_CALL ZBCDSDAY(char* name, int16_t dayOfWeek);

/* The name of a text's day of the week: ZBCDS2DOW, then ZBCDSDAY. */
ZB_API int32_t ZB_CALL ZBCDS2DAY(char* name, const char* text, int16_t style);

/* The English name of a month, 1 to 12; `name` takes 10 bytes. */
ZB_API int32_t ZB_CALL ZBCDSMONTH(char* name, int16_t month);

/* The name of a text's month: ZBCDS2I, then ZBCDSMONTH. A blank date gives
 * ZB_ErrBadDate. */
ZB_API int32_t ZB_CALL ZBCDS2MON(char* name, const char* text, int16_t style);

/* 1 for a leap year, else 0. Any year is taken, no code is looked at or changed,
 * and the library need not be started. */
ZB_API int32_t ZB_CALL ZBCDILEAP(int16_t year);

/* 1 or 0 for a text's year: ZBCDS2I, then ZBCDILEAP. A blank date gives 1. A
 * failure is returned in its place. */
ZB_API int32_t ZB_CALL ZBCDSLEAP(const char* text, int16_t style);

/* The days of a month in a year 1 to 9999. */
ZB_API int32_t ZB_CALL ZBCDIPERM(int16_t* days, int16_t year, int16_t month);

/* The days of a text's month: ZBCDS2I, then ZBCDIPERM. A blank date gives
 * ZB_ErrBadDate. */
ZB_API int32_t ZB_CALL ZBCDSPERM(int16_t* days, const char* text, int16_t style);

/* What ZBCDS2I says of a text: 0 valid, ZB_KeyEmpty blank, or its failure. */
ZB_API int32_t ZB_CALL ZBCDSVALID(const char* text, int16_t style);

/* Today's local date and day of the week; 0 is Sunday. */
ZB_API int32_t ZB_CALL ZBCDIGET(int16_t* year, int16_t* month, int16_t* dayOfMonth, int16_t* dayOfWeek);

/* Today's date as text: ZBCDIGET, then ZBCDI2S. */
ZB_API int32_t ZB_CALL ZBCDSGET(char* text, int16_t style);

/* ---- times ---- */

/* A time of day is hours 0 to 23, minutes and seconds 0 to 59. As text it is
 * "hh:mm:ss" in style 1 and "hhmm" in style 2; the buffer takes 9 bytes. The
 * functions need no open file and return a standing failure without acting.
 * Their codes are ZB_ErrBadOption for another style, ZB_ErrBadTime for a bad
 * time or text, and ZB_ErrNullPointer. */

/* The text of a time. The time, seconds included in either style, is checked
 * before the style; a failure leaves the text alone. */
ZB_API int32_t ZB_CALL ZBCTI2S(char* text, int16_t style, int16_t hours, int16_t minutes, int16_t seconds);

/* Reads a text that has exactly the style's form; in style 1 the first digit may
 * be a blank. Style 2 gives 0 seconds. Where the text holds numbers but is no
 * time, ZB_ErrBadTime comes with those numbers in the outputs; where a number
 * is missing, only style 2 has set its seconds. */
ZB_API int32_t ZB_CALL ZBCTS2I(int16_t* hours, int16_t* minutes, int16_t* seconds, const char* text,
                               int16_t style);

/* What ZBCTS2I says of a text. */
ZB_API int32_t ZB_CALL ZBCTSVALID(const char* text, int16_t style);

/* The seconds between two times of one day, whichever is the later. Both texts
 * are read before the output pointer is looked at; a failure leaves the output
 * alone. */
ZB_API int32_t ZB_CALL ZBCTSDIFF(uint32_t* seconds, const char* text1, int16_t style1, const char* text2,
                                 int16_t style2);

/* The local time now. The hundredths are always 0. */
ZB_API int32_t ZB_CALL ZBCTIGET(int16_t* hours, int16_t* minutes, int16_t* seconds, int16_t* hundredths);

/* The local time as text: ZBCTIGET, then ZBCTI2S. */
ZB_API int32_t ZB_CALL ZBCTSGET(char* text, int16_t style);

/* ---- DBT memo files ----
 *
 * A memo field of a data record holds the number of the memo's first block; the
 * host moves it between the two. Two layouts share these calls: the dialect 2
 * has counted memos and a chain of free blocks, the dialects 1, 3, 5, 6, 7 and
 * 66 have memos that end with the byte 0x1A, which no text may contain.
 *
 * A memo file takes no locks of its own: a host that shares one writes only
 * while it holds a lock on the data file. docs/memo.md tells which sequences of
 * writes keep every memo whole; some do not.
 *
 * A handle that isn't one of an open .DBT file gives ZB_ErrBadHandle.
 */

/* ZBDTCREATEX with multiplier 1 and dialect 1. */
ZB_API int32_t ZB_CALL ZBDTCREATE(const char* path);

/* Creates a memo file, or empties the one that is there, and leaves it closed.
 * `multiplier`, 1 to 32, gives blocks of 512 times that many bytes in dialect 2;
 * it must be in range in the others too (ZB_ErrBlockSize). A dialect without a
 * layout gives ZB_ErrFileType and leaves an empty file. ZB_ErrBadName for an
 * empty name, ZB_ErrOpen for one that can't be created, ZB_ErrWrite. */
ZB_API int32_t ZB_CALL ZBDTCREATEX(const char* path, int16_t multiplier, int16_t dialect);

/* Opens a memo file. The low byte of `mode` is the dialect, with 0 for 1; of the
 * bits above, ZB_ReadOnly, ZB_Shared and ZB_OpenShared count. A file that can't be
 * had as asked is opened for reading and shared, which ZBDTINFO tells.
 * ZB_ErrOpen; ZB_ErrBadName for a name that is empty or longer than 260 bytes;
 * ZB_ErrFileType for a dialect without a layout; ZB_ErrMemoShort for a file
 * below 24 bytes; in dialect 2 ZB_ErrBlockSize for a block size outside 512 to
 * 16384, ZB_ErrBadSignature for wrong marks. These failures and ZB_ErrNoSlot
 * store -1 in `memo`; a pending code and null pointers leave it alone. */
ZB_API int32_t ZB_CALL ZBDTOPENX(int16_t* memo, const char* path, uint16_t mode);

/* Closes the file and gives the handle up, also when the platform fails at it
 * (ZB_ErrBadHandle). */
ZB_API int32_t ZB_CALL ZBDTCLOSE(int16_t memo);

/* Reads the number of the next block and the file's size again, as every read
 * and write does by itself. */
ZB_API int32_t ZB_CALL ZBDTHGET(int16_t memo);

/* Reads the memo that begins at `block`. `text` receives the address of a
 * zero-terminated copy, which the caller frees with ZBMFREE, or null on every
 * failure. `option` is 0 for the text as it is stored, or ZB_MemoUnwrap to take
 * out each byte 0x8D with the one behind it; any other gives ZB_ErrBadOption.
 * ZB_ErrSeek for a block below 1, or far outside the file; ZB_ErrRead where the
 * memo can't be read, or is counted and longer than 32,767 bytes;
 * ZB_ErrStructure where its end mark is missing or its length is negative;
 * ZB_ErrFieldWidth where no end mark stands within 65,536 bytes. */
ZB_API int32_t ZB_CALL ZBDTRGET(int16_t memo, int32_t block, void** text, int16_t option);

/* The same with the handle of the copy's memory block, which the caller frees
 * with _ZBMFREE; -1 on every failure. */
ZB_API int32_t ZB_CALL ZBDTRGETH(int16_t memo, int32_t block, ZbBlock* text, int16_t option);

/* Writes a memo. The high byte of `options` says how:
 *   ZB_MemoNew      a new memo; its number is stored in `block`;
 *   ZB_MemoReplace  in place of the memo at `*block`, which isn't checked. A text
 *                   that doesn't fit becomes a new memo and changes `*block`.
 * Others have no use: dialect 2 refuses them with ZB_ErrBadOption, the other
 * dialects write at the next block without taking it. The low byte is the width
 * at which lines are broken with the soft return 0x8D 0x0A: 0 for none, or 10 to
 * 132, else ZB_ErrMemoWidth. Dialects 2 and 6 check it and store the text as it
 * is. Lines are broken behind blanks, in a word only where it is longer than the
 * width; a carriage return and the byte behind it end a line by themselves.
 *
 * A text goes to a replaced memo's place
 *   - in dialect 2 when it fits what the old length makes of the memo's room,
 *     which can come out too high or too low;
 *   - else when it has at most 510 bytes or takes no more blocks than the old
 *     one did, and always when it is wrapped, whatever stands behind the memo.
 * What is left behind after a move is free in dialect 2 and dead elsewhere.
 *
 * ZB_ErrReadOnly; ZB_ErrRead for a place that can't be read; ZB_ErrWrite, also
 * for a text of 32,768 bytes or more that isn't wrapped; ZB_ErrSeek;
 * ZB_ErrStructure where the chain of free blocks runs in a circle. After a
 * failed write the file's next block is as it was; a new memo's `*block` may
 * then hold what is no block. */
ZB_API int32_t ZB_CALL ZBDTRPUT(int16_t memo, int32_t* block, const char* text, uint16_t options);

/* Tells how the file was opened. */
ZB_API int32_t ZB_CALL ZBDTINFO(int16_t memo, ZbDbtInfo* info);

/* Rewrites the memo file without dead space: the memos that the live records of
 * `data` name are copied to a new file, their new block numbers are put into
 * the records, and the new file takes the old one's name. The old one stays
 * with the extension .BKT. The file is open shared afterwards, and `*memo` may
 * have changed. Pointers in deleted records are left as they are and mean
 * nothing any more.
 *
 * The whole data file is locked meanwhile, without looking at whether that was
 * granted. ZB_ErrReadOnly; ZB_ErrBadName where a name is too long or the backup
 * would be the file itself, and nothing is touched then. A failure later than
 * that cleans nothing up. While the records are copied it leaves the data file
 * locked, the work file (a number and .DBT in the same directory) open under a
 * handle that is lost, and in the records done so far numbers of the work file:
 * the host goes back to a copy of the data file. At the renames it leaves the
 * names as they are at that moment and the memo file closed. */
ZB_API int32_t ZB_CALL ZBDTPACK(int16_t data, int16_t* memo);

/* ---- FPT memo files ----
 *
 * The memos of dialects 4 and 8. What is said above about locks and handles
 * holds here. There are no free blocks, no wrapping and no read options.
 */

/* Creates a memo file, or empties the one that is there, and leaves it closed.
 * `size` 1 to 32 gives blocks of that many times 512 bytes, 33 to 511 blocks of
 * that many bytes; any other gives ZB_ErrBlockSize. Otherwise as ZBDTCREATEX. */
ZB_API int32_t ZB_CALL ZBDWCREATE(const char* path, int16_t size);

/* Opens a memo file, as ZBDTOPENX does. The low byte of `mode` is 0 or 4, else
 * ZB_ErrFileType. ZB_ErrMemoShort for a file below 512 bytes, ZB_ErrBlockSize for
 * a block size outside 33 to 16384. */
ZB_API int32_t ZB_CALL ZBDWOPENX(int16_t* memo, const char* path, uint16_t mode);

/* As ZBDTCLOSE. */
ZB_API int32_t ZB_CALL ZBDWCLOSE(int16_t memo);

/* Reads the number of the next block again, as every read and write does by itself. */
ZB_API int32_t ZB_CALL ZBDWHGET(int16_t memo);

/* Reads the memo that begins at `block`, as ZBDTRGET does with option 0.
 * ZB_ErrSeek for a block below 1 or not below the next new one; ZB_ErrRead where
 * the memo can't be read or is longer than 32,767 bytes; ZB_ErrStructure for a
 * negative length. */
ZB_API int32_t ZB_CALL ZBDWRGET(int16_t memo, int32_t block, void** text);

/* Writes a memo: ZB_MemoNew stores its number in `block`, ZB_MemoReplace writes
 * over the memo at `*block`, which isn't checked, or, when the text doesn't fit,
 * as a new one. Any other option gives ZB_ErrBadOption. The file is cut or
 * extended to end where a new memo begins. ZB_ErrReadOnly, ZB_ErrRead,
 * ZB_ErrWrite (also for a text of 32,768 bytes or more), ZB_ErrSeek; the next
 * block in the file is then as it was, its size may not be. */
ZB_API int32_t ZB_CALL ZBDWRPUT(int16_t memo, int32_t* block, const char* text, int16_t option);

/* Tells how the file was opened. */
ZB_API int32_t ZB_CALL ZBDWINFO(int16_t memo, ZbFptInfo* info);

/* As ZBDTPACK, with a work file .FPT. */
ZB_API int32_t ZB_CALL ZBDWPACK(int16_t data, int16_t* memo);

/* ---- expressions ----
 *
 * A key expression is read from left to right, each time anew:
 *
 *   expression  [+] term { [+] term }
 *   term        SUBSTR(term,start[,length])   from position `start`, 1 the first
 *               RIGHT(term,count)             the last `count` characters
 *               LEFT(term,count)              the first `count` characters
 *               STR(term[,width[,decimals]])  a number as text; 10 wide without decimals
 *               DTOC(term)                    a date as text in the current style
 *               DTOS(term)                    a date as text, yyyymmdd
 *               a user function
 *               the name of a field
 *               a literal
 *
 * Names and literals go up to the next comma, plus or closing parenthesis, and
 * have 1 to 10 characters. What isn't a field's name is a number when it consists
 * of digits and points, and a text otherwise; there are no quotes. Names of
 * functions are in upper case, without a blank before the parenthesis.
 *
 * Texts are joined, each with its full width, and numbers behind a plus are
 * added. Texts and numbers don't mix, nothing joins a date, and a date, logical
 * or memo term behind another term is passed over.
 *
 * A cut beyond the end of a text does nothing, and a `start` beyond it gives an
 * empty text. Whatever is wrong with an expression gives ZB_ErrExpression: among
 * it an argument of the wrong type or none at all, a `start` below 1, a count for
 * RIGHT( that the text hasn't got, a number that doesn't fit the width given to
 * STR( and 128 more, a value of more than 32767 bytes, and terms nested more than
 * 256 deep.
 *
 * User functions
 *
 * A user function is called with Cursor of ZbEvalState just behind its name. It
 * reads its arguments with ZBDXPROC and ZBDXVGET, must leave Cursor behind its
 * closing parenthesis and a value in the four Value fields, and returns 0; its
 * result becomes the standing code, and a negative one ends the evaluation. The
 * value stands in a block (see _ZBMALLOC) that becomes the library's:
 *
 *   C     text with a terminator; ValueLength counts the terminator
 *   D     date text with a terminator, in the current style or, while DateAsKey is
 *         set, as yyyymmdd
 *   N, F  a double; ValueLength is 8
 *   M     an unsigned 32-bit block number; 4
 *   L     one byte, 0, 1 or '?'; 1
 *
 * The value of an argument comes in the same fields; its block is the function's,
 * to give back as the value or to free. Before it reads the next argument it has
 * to take the handle, since that one's value overwrites the fields.
 *
 * A function may call anything in the library and evaluate other expressions. It
 * must return to its caller: no exception and no jump may leave it. A Cursor
 * outside the rest of the text, a block that doesn't exist, a type that isn't a
 * letter or a negative length give ZB_ErrExpression.
 */

/* Evaluates an expression on the record buffer of a data file. Blanks are taken
 * out of `expression` and it is turned to upper case, in place.
 *
 * On success `result` tells the value: a C or D value is a text with its
 * terminator, of `length` characters; the others are as in the table above. An
 * empty expression gives an empty text of the type blank. The value stays until
 * the caller frees it with ZBMFREE(result->value). A warning that the last user
 * function returned comes back too.
 *
 * ZB_ErrExpression, ZB_ErrMemory, the codes of reading a field, and those of user
 * functions: `result` then holds a null address, the type blank and the length 0.
 * ZB_ErrNullPointer, or a failure that stands: `result` is left alone. */
ZB_API int32_t ZB_CALL ZBDXEVAL(int16_t data, char* expression, ZbEvalResult* result);

/* The table of user functions. These four clear a failure that stands. */

/* Registers a function. The name, turned to upper case in place, is what stands
 * in expressions and so usually ends in a parenthesis: "AGE(". Of the text of an
 * expression only the beginning has to agree with it, and user functions come
 * before the built-in ones and before fields.
 *
 * ZB_WarnFuncExists: the name begins with one already registered, and nothing was
 * added. ZB_ErrBadName for an empty name or one of more than 32767 characters,
 * ZB_ErrMemory. */
ZB_API int32_t ZB_CALL ZBDXADD(char* name, ZbUserFunction function);

/* Removes the function of exactly that name, which is turned to upper case in
 * place. ZB_KeyNear when there is none; ZB_ErrBadName for an empty name. */
ZB_API int32_t ZB_CALL ZBDXDEL(char* name);

/* Copies the name of the function at `index`, counted from 0 in the order of
 * names, with a terminator. ZB_KeyEnd for an index that no function has, with
 * `name` left alone. */
ZB_API int32_t ZB_CALL ZBDXLIST(char* name, int16_t index);

/* Tells the number of functions, and the length of the longest name without its
 * terminator. ZB_KeyEmpty with a count of 0 when there is none; `longestName` is
 * then left alone. */
ZB_API int32_t ZB_CALL ZBDXINFO(int16_t* count, int16_t* longestName);

/* For user functions: evaluates one term at Cursor into the Value fields and
 * leaves Cursor behind it. A failure that stands is returned. ZB_ErrExpression
 * also outside an evaluation, or with Cursor outside the text; the Value fields
 * are 0 after a failure in the term. */
ZB_API int32_t ZB_CALL ZBDXPROC(void);

/* For user functions: steps over the character at Cursor, reads the integer
 * behind it as atoi does, its low 16 bits, and leaves Cursor at the comma or
 * parenthesis that ends it. A failure that stands is returned. ZB_ErrExpression
 * for an argument that is empty or doesn't end, and outside an evaluation; `value`
 * is then left alone. */
ZB_API int32_t ZB_CALL ZBDXVGET(uint16_t* value);

/* ---- NDX indexes ----
 *
 * One key a file, in pages of 512 bytes, with the keys either as text of the
 * index's key length, filled with blanks, or as doubles of 8 bytes, for numbers
 * and dates alike. Equal keys stand in the order of their record numbers.
 *
 * Between calls an index is a position: a key and a record number, or none
 * after the open. Every call reads the root and the page count anew, keeps no
 * page and finds the position again from the root, so a change by others doesn't
 * lose it. An index takes no locks: a host that shares one changes it only while
 * it holds a lock on the data file. Changes are written at once; after a failed
 * add or delete what was written stays written. docs/ndx.md tells the format and
 * what is odd about it.
 *
 * Below `key` is the caller's buffer of key length + 1 bytes for text, which gets
 * a terminator, and of 8 bytes for a number, which gets none. A handle that isn't
 * an open NDX file gives ZB_ErrBadHandle; a page outside the file ZB_ErrSeek; one
 * whose contents can't be right, and a leaf that has lost all its keys where a
 * key of it is asked for, ZB_ErrStructure; ZB_ErrRead and ZB_ErrWrite. A null
 * pointer is looked at before the handle. On failure outputs may have been
 * written, and the position is as it was.
 */

/* Creates an empty index, replacing a file of that name without a question; open
 * it afterwards with ZBDNOPENX. Blanks are removed from `expression` in place; at
 * most 220 characters may remain (ZB_ErrExpression). `keyType` is a letter, in
 * either case, plus 0x80 for a unique index:
 *
 *   'C'       keyLength 1 to 100, else ZB_ErrKeyLength
 *   'D', 'N'  keyLength is ignored: 8
 *
 * ZB_ErrKeyType for another; ZB_ErrBadName for an empty name; ZB_ErrOpen;
 * ZB_ErrWrite, after which the file is left as far as it got. */
ZB_API int32_t ZB_CALL ZBDNCREATE(const char* name, int16_t keyType, char* expression, int16_t keyLength);

/* Opens an index. The low byte of `mode` is 0, 1, 2 or 7, else ZB_ErrFileType; of
 * the bits above ZB_ReadOnly, ZB_Shared and ZB_OpenShared count. A file that
 * can't be had as asked is opened for reading and shared, which ZBDNINFO tells.
 *
 * ZB_WarnFileSize: the file is open, but hasn't the length that its page count
 * says. ZB_ErrOpen; ZB_ErrBadName for a name that is empty or longer than 260
 * bytes; ZB_ErrRead for a file below 248 bytes. A header that isn't one gives, in
 * this order, ZB_ErrKeyLength, ZB_ErrKeySize, ZB_ErrRootPage, ZB_ErrKeysPerPage,
 * ZB_ErrExpression, ZB_ErrKeyType. These failures, ZB_ErrNoSlot and ZB_ErrMemory
 * store 65535 in `index`; a pending failure and null pointers leave it alone. */
ZB_API int32_t ZB_CALL ZBDNOPENX(uint16_t* index, const char* name, uint16_t mode);

/* Closes an index. Pages that deletes through this handle have freed are filled
 * with pages from the end of the file first, and the file is cut. A failure in
 * this leaves the index open: ZB_ErrStructure for a tree that it can't follow. A
 * search of its own that ends in ZB_KeyNear or ZB_KeyEnd becomes the result of a
 * close that has succeeded. */
ZB_API int32_t ZB_CALL ZBDNCLOSE(int16_t index);

/* Tells about an open index. */
ZB_API int32_t ZB_CALL ZBDNINFO(int16_t index, ZbNdxInfo* info);

/* Reads the root and the page count again, as every key operation does by
 * itself. ZB_ErrRead, ZB_ErrSeek. */
ZB_API int32_t ZB_CALL ZBDNHGET(int16_t index);

/* Copies the key expression with its terminator; `text` holds 221 bytes. */
ZB_API int32_t ZB_CALL ZBDNEXPR(int16_t index, char* text);

/* Creates an index as ZBDNCREATE does, with its arguments and codes, and fills it
 * from all records of a data file, deleted ones too. The data file is locked
 * meanwhile (ZBDDLOCK, kind 2), if that can be had. A work file "stacks.tmp"
 * stands in the current directory while it runs, so no two builds may run in one
 * directory; without records there is neither.
 *
 * An expression that is just a field's name takes the key from the record as it
 * stands: a character field's bytes, filled with blanks up to the key length; a
 * date field's day count as by ZBDNKDATE; a number field's number, 0 if it is
 * blank. Fields of types F, L and M give ZB_ErrExpression. Any other expression
 * gives the keys of ZBDNKMAKE.
 *
 * ZB_ErrOpen if the work file can't be created; ZB_ErrMemory; ZB_ErrRead,
 * ZB_ErrWrite, ZB_ErrSeek. After a failure the index file stays as far as it
 * got; the work file is removed. */
ZB_API int32_t ZB_CALL ZBDNINDEX(int16_t data, const char* name, int16_t keyType, char* expression,
                                 int16_t keyLength);

/* Adds a key for a record; the position stays. A text ends at its first zero byte
 * or at the key length and is filled with blanks. The place is found by key and
 * record number; in a unique index by the key alone, and the new one goes in
 * front of its equals: nothing is refused. ZB_ErrReadOnly. */
ZB_API int32_t ZB_CALL ZBDNKADD(int16_t index, const void* key, uint32_t recordNo);

/* Deletes a key of a record; the position stays. In a unique index the record
 * number isn't looked at and the first equal key goes. ZB_KeyNear if there is no
 * such entry, ZB_KeyEmpty in an empty index: then nothing is written. ZB_KeyEnd
 * for a key below all others: the first entry has been deleted. ZB_ErrReadOnly. */
ZB_API int32_t ZB_CALL ZBDNKDEL(int16_t index, const void* key, uint32_t recordNo);

/* Searches, and makes what it finds the position. Modes: 0 or 1 for the first key
 * that begins with the text given, or equals the number; 2 for the pair of the
 * whole key and the record number; with bit 2 (4), each '?' of a text matches any
 * byte.
 *
 * 0 for a match, with the stored key and its record number. ZB_KeyNear: not found;
 * the last entry that sorts before what was asked for. A key below all others gives
 * 0 and the first entry: compare what comes back. ZB_KeyEmpty leaves the buffers
 * alone. */
ZB_API int32_t ZB_CALL ZBDNKFIND(int16_t index, void* key, uint32_t* recordNo, int16_t mode);

/* Go to the first and the last entry, and make it the position. ZB_KeyEmpty leaves
 * the buffers alone, but takes what they hold as the position. */
ZB_API int32_t ZB_CALL ZBDNKTOP(int16_t index, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDNKBOT(int16_t index, void* key, uint32_t* recordNo);

/* Go one entry on or back. ZB_KeyEnd at an end, with the entry there once more.
 * ZB_KeyNear: the entry of the position had gone, and the step was made from the
 * one before it. Without a position ZBDNKPREV goes to the last entry, and
 * ZBDNKNEXT gives ZB_KeyNear and does nothing: start a walk with ZBDNKTOP. When
 * the entry had gone and none stands before it, ZBDNKNEXT gives ZB_KeyNear and
 * does nothing, and goes on doing so until the next find, top or bottom. */
ZB_API int32_t ZB_CALL ZBDNKNEXT(int16_t index, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDNKPREV(int16_t index, void* key, uint32_t* recordNo);

/* Finds the position again and gives its entry; if that has gone, ZB_KeyNear with
 * the one before it, which becomes the position. ZB_KeyNear also without a
 * position: the buffers are left alone and become it. */
ZB_API int32_t ZB_CALL ZBDNKCUR(int16_t index, void* key, uint32_t* recordNo);

/* Make the key of a data file's current record in a memory block of the caller's:
 * by address, to be freed with ZBMFREE, or by handle, to be freed with _ZBMFREE.
 * Texts come as they are, neither cut nor filled; numbers and dates as 8 bytes (a
 * date by the date style in use). ZB_ErrExpression, also for a result of another
 * type, F among them; ZB_ErrBadDate. On failure null or -1 is stored. */
ZB_API int32_t ZB_CALL ZBDNKMAKE(int16_t data, int16_t index, void** key);
ZB_API int32_t ZB_CALL ZBDNKMAKEH(int16_t data, int16_t index, ZbBlock* key);

/* Writes a number as the 8 bytes of a key. */
ZB_API int32_t ZB_CALL ZBDNKNUM(void* key, double value);

/* Writes a date, a text in a style from 1 to 15, as the 8 bytes of a key: a day
 * count; a blank one as 1E+100, which sorts behind all others. ZB_ErrBadDate,
 * ZB_ErrBadOption. */
ZB_API int32_t ZB_CALL ZBDNKDATE(void* key, const char* text, int16_t style);

/* Compares two keys of `length` bytes: below 0, 0 or above 0 as `a` sorts before,
 * with or behind `b`. It needs no started library and leaves the code alone.
 *
 *   type 0     text, by bytes or by the collating order, as "asciisort" says
 *   type 1, 2  a little-endian floating-point number; 0 and -0 differ
 *   type 3, 5  a little-endian unsigned number
 *   type 4, 6  a little-endian signed number
 *   type 8     text, where '?' in `a` matches any byte
 *   others     always 0
 */
ZB_API int32_t ZB_CALL _ZBDNKCMP(const void* a, const void* b, int16_t type, int16_t length);

/* ---- NTX indexes ----
 *
 * One key a file, in pages of 1024 bytes, with the keys as text of the index's
 * key length: characters filled with blanks, dates as yyyymmdd, numbers filled
 * with zeros. Keys sort by their bytes. The file doesn't tell the key's type.
 *
 * Between calls an index is a position: a key and a record number, or none
 * after the open. Every call sees the file as it is then and finds the position
 * again from the root. An index takes no locks: a host that shares one changes it
 * only while it holds a lock on the data file. Changes are written at once;
 * after a failed add or delete what was written stays written. docs/ntx.md tells
 * the format, and what an index made by ZBDCINDEX can be used for.
 *
 * Below `key` is the caller's buffer of key length + 1 bytes. A handle that isn't
 * an open NTX file gives ZB_ErrBadHandle; a page outside the file ZB_ErrSeek, and
 * one whose contents can't be right ZB_ErrStructure. A null pointer is looked at
 * before the handle.
 */

/* Creates an empty index, or replaces the file that is there, and leaves it
 * closed. Blanks are removed from `expression` in place; at most 255 characters
 * may remain (ZB_ErrExpression). The low byte of `keyType` is a letter, in either
 * case, plus 0x80 for a unique index:
 *
 *   'C'  keyLength 1 to 100, decimals ignored
 *   'D'  both ignored: 8 and 0
 *   'N'  keyLength 1 to 19, decimals 0 to keyLength - 2 and to 15, so that the
 *        shortest is 2 with 0
 *
 * ZB_ErrKeyType, ZB_ErrKeyLength, ZB_ErrFieldDecimals; ZB_ErrBadName for an empty
 * name; ZB_ErrOpen; ZB_ErrWrite, after which the file is left. */
ZB_API int32_t ZB_CALL ZBDCCREATE(const char* name, int16_t keyType, char* expression, int16_t keyLength,
                                  int16_t decimals);

/* Opens an index. The low byte of `mode` is 0, 5 or 6, else ZB_ErrFileType; of
 * the bits above ZB_ReadOnly, ZB_Shared and ZB_OpenShared count. A file that
 * can't be had as asked is opened for reading and shared, which ZBDCINFO tells.
 *
 * ZB_WarnFileSize: the file is open, but isn't whole pages; it can't grow.
 * ZB_ErrOpen; ZB_ErrBadName for a name that is empty or longer than 260 bytes;
 * ZB_ErrRead for a file below 280 bytes. A header that isn't one gives, in this
 * order, ZB_ErrKeyLength, ZB_ErrKeySize, ZB_ErrRootPage, ZB_ErrKeysPerPage,
 * ZB_ErrHalfPage, ZB_ErrExpression. These failures, ZB_ErrNoSlot and ZB_ErrMemory
 * store 65535 in `index`; a pending failure and null pointers leave it alone. */
ZB_API int32_t ZB_CALL ZBDCOPENX(uint16_t* index, const char* name, uint16_t mode);

/* Closes an index. After a failure it is still open. */
ZB_API int32_t ZB_CALL ZBDCCLOSE(int16_t index);

/* Tells about an open index. */
ZB_API int32_t ZB_CALL ZBDCINFO(int16_t index, ZbNtxInfo* info);

/* Reads the root, the free chain and the file's length again, as every key
 * operation does by itself. ZB_ErrRead, ZB_ErrSeek. */
ZB_API int32_t ZB_CALL ZBDCHGET(int16_t index);

/* Copies the key expression with its terminator; `text` holds 256 bytes. */
ZB_API int32_t ZB_CALL ZBDCEXPR(int16_t index, char* text);

/* Creates an index as ZBDCCREATE does, with its arguments and codes, and fills it
 * from all records of a data file, deleted ones too; equal keys stand in the
 * order of their records. The data file is locked meanwhile, if that can be had.
 * `expression` is left in upper case if there are records. A work file
 * "stacks.tmp" stands in the current directory while it runs, so no two builds
 * may run in one directory.
 *
 * An expression that is just a field's name takes the key from the record as it
 * stands: `keyLength` bytes from where a character or date field begins (bytes
 * behind the field, if it is shorter); a number with zeros for its leading blanks
 * if field and key agree in length and decimals, and else written anew. A
 * negative number becomes its digits complemented as by ZBDCKNUM and filled with
 * bytes 0x5C. Other field types give keys of zero bytes. Any other expression gives
 * the keys of ZBDCKMAKE, filled with blanks.
 *
 * ZB_ErrExpression for a number that is longer than the key; ZB_ErrOpen if the
 * work file can't be created; ZB_ErrMemory; ZB_ErrRead, ZB_ErrWrite, ZB_ErrSeek.
 * After a failure neither the index nor the work file is left, except that
 * arguments refused by ZBDCCREATE leave an old file as it was. */
ZB_API int32_t ZB_CALL ZBDCINDEX(int16_t data, const char* name, int16_t keyType, char* expression,
                                 int16_t keyLength, int16_t decimals);

/* Adds an entry. The key ends at its first zero byte or at the key length and is
 * filled with blanks. Among equal keys it goes behind the others, in a unique
 * index in front of them: nothing is refused. The position stays where it is.
 * The entry must not be there yet: adding one again that stands in an interior
 * page cuts off a part of the tree. ZB_ErrReadOnly. */
ZB_API int32_t ZB_CALL ZBDCKADD(int16_t index, const void* key, uint32_t recordNo);

/* Deletes an entry; the position stays where it is. In a unique index the record
 * number isn't looked at, and the first key that begins with the one given goes.
 * ZB_KeyNear if there is no such entry, ZB_KeyEmpty for an empty index: then
 * nothing is written. ZB_KeyEnd for a key below all others: the first entry has
 * been deleted. ZB_ErrReadOnly. */
ZB_API int32_t ZB_CALL ZBDCKDEL(int16_t index, const void* key, uint32_t recordNo);

/* Finds an entry and makes it the position. With `mode` 2 the whole key, filled
 * with blanks, and the record number are looked for; with any other the first key
 * that begins with the text given.
 *
 * 0: found, with the stored key, to which no terminator is added, and its record
 * number. ZB_KeyNear: not found; the entry before its place. A key below all others
 * gives 0 and the first entry. ZB_KeyEmpty leaves the buffers alone. */
ZB_API int32_t ZB_CALL ZBDCKFIND(int16_t index, void* key, uint32_t* recordNo, int16_t mode);

/* Go to the first and the last entry, and make it the position. The key comes with
 * a terminator. ZB_KeyEmpty leaves the buffers alone. */
ZB_API int32_t ZB_CALL ZBDCKTOP(int16_t index, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDCKBOT(int16_t index, void* key, uint32_t* recordNo);

/* Go one entry on or back. Without a position they go to the first or last entry.
 * ZB_KeyEnd at an end, with the entry there once more. ZB_KeyNear: the entry of the
 * position had gone, and the step was made from the one before it; if it was the
 * first, the new first entry is given. In an index that has been emptied
 * ZB_KeyEnd, and the buffers are left alone. */
ZB_API int32_t ZB_CALL ZBDCKNEXT(int16_t index, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDCKPREV(int16_t index, void* key, uint32_t* recordNo);

/* Gives the entry of the position; if that has gone, ZB_KeyNear with the one before
 * it, or the first. ZB_KeyNear also without a position: the buffers are left alone
 * and become the position. ZB_KeyEmpty leaves them alone. */
ZB_API int32_t ZB_CALL ZBDCKCUR(int16_t index, void* key, uint32_t* recordNo);

/* Make the key of a data file's current record, in a memory block of the
 * caller's: by address, to be freed with ZBMFREE, or by handle, to be freed with
 * _ZBMFREE. Texts come as they are, neither cut nor filled; dates as yyyymmdd. A
 * negative number keeps its minus sign, unlike one of ZBDCKNUM, and sorts
 * accordingly. ZB_ErrExpression, also for a result of another type and for a
 * number longer than the key; ZB_ErrBadDate, also for a blank date. On failure
 * null or -1 is stored. */
ZB_API int32_t ZB_CALL ZBDCKMAKE(int16_t data, int16_t index, void** key);
ZB_API int32_t ZB_CALL ZBDCKMAKEH(int16_t data, int16_t index, ZbBlock* key);

/* Writes a number as a key, with a terminator. A negative one loses its sign and
 * gets its digits complemented, so that it sorts before the others; it is a byte
 * shorter. ZB_ErrExpression if its text, the sign included, is longer than the
 * key, and for an infinity or NaN: `key` is left alone then. `key` is looked at
 * after the handle. */
ZB_API int32_t ZB_CALL ZBDCKNUM(int16_t index, void* key, double value);

/* Writes a date text of a style as a key of 8 characters with a terminator; `key`
 * holds 10 bytes. A blank date gives 8 blanks, leaves byte 8 alone and puts the
 * terminator at byte 9. Needs no index. ZB_ErrBadDate, ZB_ErrBadOption. */
ZB_API int32_t ZB_CALL ZBDCKDATE(void* key, const char* text, int16_t style);

/* ---- IDX indexes ----
 *
 * A standard file holds whole keys and can be searched, walked and changed. A
 * compact file packs its leaves: this library builds them for other programs,
 * gives their record numbers in order, each with a key of fill bytes, and can
 * neither find their keys nor change them to any good. docs/idx.md tells the
 * formats, what each kind of file is good for, and how a built standard file is
 * made whole for programs that search it in other ways.
 *
 * Keys have the key length exactly: character keys as they stand (the caller
 * pads them; whatever follows a zero byte is compared too), `L` keys T or F,
 * numbers and dates 8 bytes as ZBDIKNUM and ZBDIKDATE make them. All compare as
 * unsigned bytes. A buffer that receives a key holds one byte more, for the zero
 * behind a key of type C; keys of other types get none. The type isn't in the
 * file: ZBDIKTYPE tells it after each open.
 *
 * The position is a key and a record number, none at first, and is found again
 * at each step, so a change by others doesn't lose it. Every call reads the
 * header again and keeps no page; no call locks anything: a host that shares an
 * index holds a lock on the data file around its changes.
 *
 * Every function with a handle returns ZB_ErrBadHandle for one that isn't an
 * open IDX file, a failure that stands before it has looked at the handle, and
 * ZB_ErrOpen after ZBDQCLOSE. Null pointers are looked at first of all. Calls
 * that reach pages give ZB_ErrSeek for one outside the file or between pages,
 * ZB_ErrStructure for one that can't be what it is taken for and for pages in a
 * circle, ZB_ErrRead and ZB_ErrWrite. The position is left alone on failure.
 */

/* What is added to the letter of the key type in the type word. */
enum ZbIdxType {
    ZB_IdxUnique = 0x0080, /* chooses how equal keys are found; refuses none */
    ZB_IdxCompact = 0x0400
};

/* Creates an empty index, replacing a file of that name without a question; open
 * it afterwards with ZBDIOPENX. The type is C, D, L or N in either case, else
 * ZB_ErrKeyType. `keyLength` counts for C alone, 1 to 100, else
 * ZB_ErrKeyLength; D and N have 8, L has 1. All blanks are taken out of the
 * expression in the caller's buffer; more than 220 characters are left:
 * ZB_ErrExpression. (One of exactly 220 makes a file that can't be opened.)
 * ZB_ErrBadName, ZB_ErrOpen; ZB_ErrWrite leaves the file as far as it got. */
ZB_API int32_t ZB_CALL ZBDICREATE(const char* name, uint16_t typeWord, char* expression, int16_t keyLength);

/* Opens an index. The low byte of `mode` must be 0, 3, 4 or 8 and has no effect,
 * else ZB_ErrFileType; ZB_ReadOnly, ZB_Shared and ZB_OpenShared count. A file that
 * can't be had as asked is opened for reading and shared, which ZBDIINFO tells.
 * ZB_ErrOpen, ZB_ErrBadName, ZB_ErrNoSlot, ZB_ErrMemory; ZB_ErrRead for a file
 * shorter than its header; ZB_ErrKeyLength; ZB_ErrExpression for one of 220
 * characters or more; ZB_ErrRootPage for a root outside the file. On failure
 * the handle is 65535; a null argument or a failure that stood before leave it
 * alone. */
ZB_API int32_t ZB_CALL ZBDIOPENX(uint16_t* index, const char* name, uint16_t mode);

/* Closes an index. After a failure it is still open. */
ZB_API int32_t ZB_CALL ZBDICLOSE(int16_t index);

/* Tells about an open index. */
ZB_API int32_t ZB_CALL ZBDIINFO(int16_t index, ZbIdxInfo* info);

/* Reads the header's changing fields again, as every key operation does. */
ZB_API int32_t ZB_CALL ZBDIHGET(int16_t index);

/* Copies the key expression with its terminator, 220 bytes at most. */
ZB_API int32_t ZB_CALL ZBDIEXPR(int16_t index, char* text);

/* Tells the type of the keys: C, D, L or N in either case. Of a compact file it
 * sets what its keys read as, blanks for C and otherwise zeros, which they are
 * before. ZB_ErrKeyType for any other, which ZBDIINFO shows all the same. */
ZB_API int32_t ZB_CALL ZBDIKTYPE(int16_t index, int16_t keyType);

/* Creates an index and fills it with the keys of all records of a data file,
 * deleted ones too. The four arguments behind the data file are those of
 * ZBDICREATE; the expression also becomes upper case. The data file is locked
 * meanwhile (ZBDDLOCK, kind 2) if the lock can be had. Equal keys stand in order
 * of their record numbers.
 *
 * Where the expression is the name of a field the key is made of it directly: of
 * C fields the bytes, followed by what stands behind the field where the key is
 * longer; of D fields the day count, for a blank date that of the year 0 without
 * month and day; of N fields the number. Fields of other types give keys of zero
 * bytes. Every other expression is evaluated as by ZBDIKMAKE.
 *
 * ZB_ErrOpen, ZB_ErrRead, ZB_ErrWrite and ZB_ErrSeek also come from the work file
 * "stacks.tmp" in the current directory, where two builds at once disturb each
 * other; ZB_ErrMemory; the codes of ZBDICREATE, ZBDIOPENX, ZBDDRGET, ZBDIKMAKE and
 * ZBCDS2I. After a failure that came once the index was created no index is
 * left; the work file is removed in any case. */
ZB_API int32_t ZB_CALL ZBDIINDEX(int16_t data, const char* name, uint16_t typeWord, char* expression,
                                 int16_t keyLength);

/* Adds a key for a record. Equal keys stand in order of arrival; in a unique index
 * the new one goes before the others. Nothing is refused: look first where a key
 * may be there already. ZB_ErrReadOnly. A failure may leave the change half
 * written. In a compact file the key goes behind the last entry, and what follows
 * is of no use but to the curious. */
ZB_API int32_t ZB_CALL ZBDIKADD(int16_t index, const void* key, uint32_t recordNo);

/* Deletes a key of a record; in a unique index the first equal one, whatever its
 * record. ZB_KeyNear: it isn't there, nothing is changed. ZB_KeyEnd: it sorts
 * before all keys, and the first key was deleted. ZB_KeyEmpty. ZB_ErrReadOnly. A
 * failure may leave the change half written. In a compact file the leaf loses its
 * last entry, whichever was meant. */
ZB_API int32_t ZB_CALL ZBDIKDEL(int16_t index, const void* key, uint32_t recordNo);

/* Finds a key, in mode 2 with the record number given too, and makes what it
 * found the position. 0: key and record number are those found; or the key sorts
 * before all, and they are those of the first. ZB_KeyNear: those of the last
 * entry before it. ZB_KeyEmpty leaves both alone. */
ZB_API int32_t ZB_CALL ZBDIKFIND(int16_t index, void* key, uint32_t* recordNo, int16_t mode);

/* Go to the first or the last key. ZB_KeyEmpty leaves key and record number
 * alone, and makes them the position. */
ZB_API int32_t ZB_CALL ZBDIKTOP(int16_t index, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDIKBOT(int16_t index, void* key, uint32_t* recordNo);

/* Go one key on or back from the position; without one to the first or the last
 * key. ZB_KeyEnd: there is none, and the key is the last (the first) again.
 * ZB_KeyNear: the position's key has gone, and the step was made from the entry
 * before it; or it sorted before all others, and the key is the first. */
ZB_API int32_t ZB_CALL ZBDIKNEXT(int16_t index, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDIKPREV(int16_t index, void* key, uint32_t* recordNo);

/* Finds the position again and gives its key and record number. ZB_KeyNear: its
 * key has gone, and the entry before it is the position now; or there was no
 * position, and what the buffers hold becomes it. */
ZB_API int32_t ZB_CALL ZBDIKCUR(int16_t index, void* key, uint32_t* recordNo);

/* Makes the key of the data file's current record: evaluates the index's
 * expression, and puts the value into the form of a key (a date by the date style
 * in use). `key` receives its address, which the caller frees with ZBMFREE, or
 * null on failure. A text is as long as the expression gives it.
 * ZB_ErrExpression also for a value of type F. */
ZB_API int32_t ZB_CALL ZBDIKMAKE(int16_t data, int16_t index, void** key);

/* The same with the handle of the memory block, which the caller frees with
 * _ZBMFREE; -1 on failure. */
ZB_API int32_t ZB_CALL ZBDIKMAKEH(int16_t data, int16_t index, ZbBlock* key);

/* Writes a number as the 8 bytes of a key. */
ZB_API int32_t ZB_CALL ZBDIKNUM(void* key, double value);

/* Writes a date, a text in a style from 1 to 15, as the 8 bytes of a key; a blank
 * one as the number 0. ZB_ErrBadDate, ZB_ErrBadOption. */
ZB_API int32_t ZB_CALL ZBDIKDATE(void* key, const char* text, int16_t style);

/* ---- MDX files and tags ---- */

/* An MDX file holds up to 47 indexes, called tags, over one data file. A file
 * handle is a small integer like any other; a tag is attached by ZBDMTUSE, which
 * gives a tag handle: the tag's number in the high 16 bits, the file handle in
 * the low 16, or -1 for none. Handles don't follow a tag whose number changes
 * (see ZBDMTERASE).
 *
 * The calls on files and tags need a file handle (else ZB_ErrBadHandle), and
 * those on tags an attached one: ZB_ErrTagHandle for a number outside 1 to 47,
 * ZB_ErrLockBlock for a tag that isn't attached. Damage that a call meets is
 * ZB_ErrSeek for a page outside the file and ZB_ErrStructure for whatever else
 * can't be. Changes reach the file page by page as they happen; none is undone
 * when a later one fails. Nothing here locks the MDX file: programs that share
 * it agree by locks on the data file.
 *
 * ZBDQCLOSE doesn't give up MDX files; they go on working. */

/* ZBDMCREATEX with the production flag set. */
ZB_API int32_t ZB_CALL ZBDMCREATE(const char* path, int32_t multiplier);

/* Creates a file without tags and leaves it closed. Its blocks are `multiplier`
 * times 512 bytes, 1 to 32 (ZB_ErrBlockSize). Bit 0x200 of `option` sets the
 * production flag. An existing file is emptied.
 *
 * The file's name without directory and extension goes into the header, upper
 * case; more than 8 characters are refused with ZB_ErrBadName, after the file
 * was made: it stays, empty, and stays open until the process ends.
 *
 * The header holds today's date, and the format takes years from 1980 to 2019
 * alone: a file that is made today can't be opened (ZB_ErrHeaderDate). A host
 * that wants one sets the environment variable ZB_TODAY to a day of those years
 * before the call. */
ZB_API int32_t ZB_CALL ZBDMCREATEX(const char* path, int16_t multiplier, uint16_t option);

/* Opens a file. The low byte of `mode` is 0 or 2 (else ZB_ErrFileType); above it
 * ZB_ReadOnly, ZB_Shared or ZB_OpenShared. ZB_WarnFileSize when the length isn't
 * what the header says: the file is open all the same.
 *
 * The header is tested in this order: version (ZB_ErrFileType), date
 * (ZB_ErrHeaderDate), block size (ZB_ErrBlockSize, ZB_ErrMdxBlock), tag table
 * (ZB_ErrMdxTagTable, ZB_ErrMdxTagSlot), tag count (ZB_ErrMdxTagCount), end of
 * the file (ZB_ErrHeaderLength). A path of more than 260 bytes gives
 * ZB_ErrBadName. On these failures `file` is -1; a null pointer or a failure that
 * stood before leave it alone. The tag table is read here and not again. */
ZB_API int32_t ZB_CALL ZBDMOPENX(int16_t* file, const char* path, uint16_t mode);

/* Detaches all tags and closes the file. */
ZB_API int32_t ZB_CALL ZBDMCLOSE(int16_t file);

/* Tells about the file. A null pointer isn't logged. */
ZB_API int32_t ZB_CALL ZBDMINFO(int16_t file, ZbMdxInfo* info);

/* Creates an empty tag and leaves it unattached. The name has 1 to 10 characters
 * (ZB_ErrTagName) and is kept upper case. The low byte of `typeWord` is 'C', 'D'
 * or 'N', in capital or small letters (ZB_ErrKeyType); 0x80 marks the tag as
 * unique, which tells by what a key is found when it is added or deleted and
 * keeps no equal key out; 0x100 is stored and reported. `keyLength`, 1 to 100
 * (ZB_ErrKeyLength), counts for 'C'; a 'D' key has 8 bytes, an 'N' key 12.
 *
 * Blanks are removed from `expression` in place, whatever else happens but a bad
 * name; 220 characters may be left (ZB_ErrExpression).
 *
 * A tag of that name is erased first and its number taken, also where something
 * that is found out later fails; ZB_ErrTagInUse while it is attached. With 47
 * tags there, ZB_ErrNoSlot. */
ZB_API int32_t ZB_CALL ZBDMTNEW(int16_t file, const char* tagName, uint32_t typeWord, char* expression,
                                int32_t keyLength);

/* Erases a tag and gives its pages to the file's free list. ZB_ErrTagName for a
 * name that is bad or not there, ZB_ErrTagInUse for an attached tag.
 *
 * The last tag takes the erased one's number. A handle of it isn't told: build
 * the new one from the number, or attach the tag again. */
ZB_API int32_t ZB_CALL ZBDMTERASE(int16_t file, const char* tagName);

/* Attaches a tag by name, without regard to case (ZB_ErrTagName). It has no
 * position at first. The tag's header is tested in this order: key length
 * (ZB_ErrKeyLength), entry length (ZB_ErrKeySize), root page (ZB_ErrRootPage),
 * keys a page, 2 at least (ZB_ErrKeysPerPage), expression (ZB_ErrExpression),
 * flags (ZB_ErrMdxTagFlags), key type and date mark (ZB_ErrKeyType). On a failure
 * `tag` is -1, and left alone where the failure stood before the call. A tag that
 * is attached already starts anew under the same handle. */
ZB_API int32_t ZB_CALL ZBDMTUSE(int32_t* tag, uint16_t file, const char* tagName);

/* Attaches a tag by its number, 1 to the tag count (ZB_ErrTagName). */
ZB_API int32_t ZB_CALL ZBDMTUSEX(int32_t* tag, uint16_t file, int16_t tagNumber);

/* Detaches a tag; the file stays open. ZB_ErrTagHandle for a number above the tag
 * count. */
ZB_API int32_t ZB_CALL ZBDMTCLOSE(int32_t tag);

/* Tells about a tag. */
ZB_API int32_t ZB_CALL ZBDMTINFO(int32_t tag, ZbMdxTagInfo* info);

/* Copies the key expression with its terminator; `text` takes 221 bytes. */
ZB_API int32_t ZB_CALL ZBDMTEXPR(int32_t tag, char* text);

/* Reads the end of the file, the free list and the tag's root page again, as every
 * key operation does for itself. */
ZB_API int32_t ZB_CALL ZBDMTHGET(int32_t tag);

/* Creates a tag as ZBDMTNEW does and adds the keys of all records of a data file,
 * deleted ones too. The data file is locked as a whole meanwhile (ZBDDLOCK, kind
 * 2) if that can be had, unless it holds no record, which leaves an empty tag. The
 * last record read is the current one afterwards. A failure after the tag was
 * made erases it. */
ZB_API int32_t ZB_CALL ZBDMTINDEX(int16_t data, uint16_t file, const char* tagName, uint32_t typeWord,
                                  char* expression, int32_t keyLength);

/* Adds a key with its record number; the position stays. A text key ends at its
 * zero byte and is padded with blanks to the key length, or cut to it. Equal keys
 * stand in the order of their record numbers, an equal pair in front of the one
 * that is there; in a unique tag a key goes in front of its equals. ZB_ErrReadOnly. */
ZB_API int32_t ZB_CALL ZBDMKADD(int32_t tag, const void* key, uint32_t recordNo);

/* Removes a key with its record number, or in a unique tag the first of that key
 * whoever's it is; the position stays. ZB_KeyNear when there is none and
 * ZB_KeyEmpty in an empty tag, and nothing changes. A key that sorts before all
 * others removes the first one, with 0: compare before deleting.
 *
 * A page that gets short is joined with a neighbour or takes keys from it. Two
 * things can come of the latter, which the format's other programs share. Where
 * a leaf takes an odd half from the left, one key is afterwards hidden from exact
 * searches (ZB_KeyNear with that key) and can't be deleted until the tag is built
 * anew. Where one takes keys from the right, bytes that stood behind its keys can
 * make it be taken for a branch: calls that come there end with a code or other
 * keys, and an erase gives back pages of others; make the file anew. ZB_ErrReadOnly. */
ZB_API int32_t ZB_CALL ZBDMKDEL(int32_t tag, const void* key, uint32_t recordNo);

/* Searches, and makes what it finds the position. Modes: 0 or 1 for the first key
 * that begins with the text given, or equals the number or date; 2 for the pair of
 * the whole key and `recordNo`; with bit 2 (4), each '?' of a text matches any
 * byte. Both buffers are read and written: the key's holds the key length and, for
 * a text, one byte more.
 *
 * 0 for a match. ZB_KeyNear with the last entry that sorts before what was asked
 * for. A key before all others is answered with the first entry and 0: compare
 * what comes back. ZB_KeyEmpty leaves the buffers alone. */
ZB_API int32_t ZB_CALL ZBDMKFIND(int32_t tag, void* key, uint32_t* recordNo, int16_t mode);

/* The first and the last key, which becomes the position. ZB_KeyEmpty leaves the
 * buffers alone, but takes what they hold as the position. */
ZB_API int32_t ZB_CALL ZBDMKTOP(int32_t tag, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDMKBOT(int32_t tag, void* key, uint32_t* recordNo);

/* One key on or back; without a position, the first or the last. ZB_KeyEnd with
 * the end key when there is none further. When the key of the position has gone,
 * the step starts from the one before it and ZB_KeyNear stands beside what it
 * finds; where none is before it, the first key comes with ZB_KeyNear. */
ZB_API int32_t ZB_CALL ZBDMKNEXT(int32_t tag, void* key, uint32_t* recordNo);
ZB_API int32_t ZB_CALL ZBDMKPREV(int32_t tag, void* key, uint32_t* recordNo);

/* Finds the position's key again. ZB_KeyNear with the one before it when it has
 * gone; also without a position, and then what the buffers hold becomes it. */
ZB_API int32_t ZB_CALL ZBDMKCUR(int32_t tag, void* key, uint32_t* recordNo);

/* Makes the key of the data file's current record in a block, which the caller
 * frees (ZBMFREE, _ZBMFREE): a text with its terminator as it came from the
 * expression, a date, or a packed number. A date text is read in the client's
 * date style. ZB_ErrExpression for any other type, and for a number that
 * ZBDMKNUM refuses. On a failure the address is null, the handle 0xFFFFFFFF. */
ZB_API int32_t ZB_CALL ZBDMKMAKE(int16_t data, int32_t tag, void** key);
ZB_API int32_t ZB_CALL ZBDMKMAKEH(int16_t data, int32_t tag, ZbBlock* key);

/* The number key of a value, rounded to 6 decimals; `key` takes 12 bytes. Infinity,
 * NaN and numbers of more than 20 digits before the point are refused with
 * ZB_ErrExpression and leave it alone. A warning is cleared, a standing failure
 * returned. */
ZB_API int32_t ZB_CALL ZBDMKNUM(void* key, double value);

/* The date key of a text in a style; `key` takes 8 bytes and on a failure of the
 * text (see ZBCDS2I) is left alone. A blank date sorts behind all others. Days are
 * counted with a February of 28 days in every year, so 29 February and 1 March of
 * a leap year give the same key. */
ZB_API int32_t ZB_CALL ZBDMKDATE(void* key, const char* text, int16_t style);

#ifdef __cplusplus
}
#endif

#endif
