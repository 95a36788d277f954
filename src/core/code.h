// The codes of the public interface under their plain names, and the few calls
// through which every failure is set, logged and passed on.
#pragma once

#include "zb.h"

namespace zb {

// 0 success, below 0 a failure that stands until it is cleared, above 0 a
// warning that the next bind clears.
using Code = int16_t;

inline constexpr Code WarnFuncExists = ZB_WarnFuncExists;
inline constexpr Code WarnNoFlush = ZB_WarnNoFlush;
inline constexpr Code WarnFileSize = ZB_WarnFileSize;
inline constexpr Code WarnRounded = ZB_WarnRounded;
inline constexpr Code WarnTruncated = ZB_WarnTruncated;
inline constexpr Code KeyNear = ZB_KeyNear;
inline constexpr Code KeyEnd = ZB_KeyEnd;
inline constexpr Code KeyEmpty = ZB_KeyEmpty;
inline constexpr Code WarnDeleted = ZB_WarnDeleted;
inline constexpr Code ErrWrite = ZB_ErrWrite;
inline constexpr Code ErrRead = ZB_ErrRead;
inline constexpr Code ErrMemory = ZB_ErrMemory;
inline constexpr Code ErrSeek = ZB_ErrSeek;
inline constexpr Code ErrRenameMissing = ZB_ErrRenameMissing;
inline constexpr Code ErrStructure = ZB_ErrStructure;
inline constexpr Code ErrExpression = ZB_ErrExpression;
inline constexpr Code ErrNoSlot = ZB_ErrNoSlot;
inline constexpr Code ErrNoPageHeld = ZB_ErrNoPageHeld;
inline constexpr Code ErrPageNotHeld = ZB_ErrPageNotHeld;
inline constexpr Code ErrBadOption = ZB_ErrBadOption;
inline constexpr Code ErrBadHandle = ZB_ErrBadHandle;
inline constexpr Code ErrBadName = ZB_ErrBadName;
inline constexpr Code ErrBadDate = ZB_ErrBadDate;
inline constexpr Code ErrBadTime = ZB_ErrBadTime;
inline constexpr Code ErrMemoShort = ZB_ErrMemoShort;
inline constexpr Code ErrFileType = ZB_ErrFileType;
inline constexpr Code ErrHeaderLength = ZB_ErrHeaderLength;
inline constexpr Code ErrHeaderDate = ZB_ErrHeaderDate;
inline constexpr Code ErrNullPointer = ZB_ErrNullPointer;
inline constexpr Code ErrKeyType = ZB_ErrKeyType;
inline constexpr Code ErrKeyLength = ZB_ErrKeyLength;
inline constexpr Code ErrKeySize = ZB_ErrKeySize;
inline constexpr Code ErrRootPage = ZB_ErrRootPage;
inline constexpr Code ErrKeysPerPage = ZB_ErrKeysPerPage;
inline constexpr Code ErrFieldCount = ZB_ErrFieldCount;
inline constexpr Code ErrFieldName = ZB_ErrFieldName;
inline constexpr Code ErrFieldWidth = ZB_ErrFieldWidth;
inline constexpr Code ErrFieldDecimals = ZB_ErrFieldDecimals;
inline constexpr Code ErrFieldType = ZB_ErrFieldType;
inline constexpr Code ErrRecordLength = ZB_ErrRecordLength;
inline constexpr Code ErrFieldValue = ZB_ErrFieldValue;
inline constexpr Code ErrMemoWidth = ZB_ErrMemoWidth;
inline constexpr Code ErrProductionFlag = ZB_ErrProductionFlag;
inline constexpr Code ErrReadOnly = ZB_ErrReadOnly;
inline constexpr Code ErrLockViolation = ZB_ErrLockViolation;
inline constexpr Code ErrShareBuffer = ZB_ErrShareBuffer;
inline constexpr Code ErrAccess = ZB_ErrAccess;
inline constexpr Code ErrHalfPage = ZB_ErrHalfPage;
inline constexpr Code ErrOpen = ZB_ErrOpen;
inline constexpr Code ErrFlush = ZB_ErrFlush;
inline constexpr Code ErrTagHandle = ZB_ErrTagHandle;
inline constexpr Code ErrBlockSize = ZB_ErrBlockSize;
inline constexpr Code ErrTagName = ZB_ErrTagName;
inline constexpr Code ErrMdxBlock = ZB_ErrMdxBlock;
inline constexpr Code ErrMdxTagTable = ZB_ErrMdxTagTable;
inline constexpr Code ErrMdxTagSlot = ZB_ErrMdxTagSlot;
inline constexpr Code ErrMdxTagCount = ZB_ErrMdxTagCount;
inline constexpr Code ErrMdxTagFlags = ZB_ErrMdxTagFlags;
inline constexpr Code ErrBadSignature = ZB_ErrBadSignature;
inline constexpr Code ErrTagInUse = ZB_ErrTagInUse;
inline constexpr Code ErrLockBlock = ZB_ErrLockBlock;
inline constexpr Code ErrNotAttached = ZB_ErrNotAttached;
inline constexpr Code ErrIdxPageOver = ZB_ErrIdxPageOver;
inline constexpr Code ErrIdxPageUnder = ZB_ErrIdxPageUnder;

// The conflict value of the lock calls: not a code, and not a failure.
inline constexpr uint16_t LockConflict = 100;

// Reads and sets the client's code. Without a client both give ErrNotAttached.
Code CurrentCode();
Code SetCode(Code code);

// Whether a failure stands, which every entry check asks first.
inline bool Pending() { return CurrentCode() < 0; }

// Appends one line to the log, if the log is on.
void LogLine(const char* unit, int line, Code code);

// A step detected a failure: sets the code, logs it under the unit's name and
// the caller's line, and returns it.
Code Fail(const char* unit, Code code, int line = __builtin_LINE());

// A step called something that failed: logs the code that stands and returns it.
Code Pass(const char* unit, int line = __builtin_LINE());

}  // namespace zb
