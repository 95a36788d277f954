"""What a failed call raises."""

from enum import IntEnum


class Code(IntEnum):
    """The codes of zb.h, without their ZB_."""

    WarnFuncExists = 11
    WarnNoFlush = 8
    WarnFileSize = 7
    WarnRounded = 6
    WarnTruncated = 5
    KeyNear = 4
    KeyEnd = 3
    KeyEmpty = 2
    WarnDeleted = 1
    Ok = 0
    ErrWrite = -1
    ErrRead = -2
    ErrMemory = -3
    ErrSeek = -4
    ErrRenameMissing = -5
    ErrStructure = -6
    ErrExpression = -7
    ErrNoSlot = -8
    ErrNoPageHeld = -9
    ErrPageNotHeld = -10
    ErrBadOption = -12
    ErrBadHandle = -13
    ErrBadName = -14
    ErrBadDate = -15
    ErrBadTime = -16
    ErrMemoShort = -17
    ErrFileType = -18
    ErrHeaderLength = -19
    ErrHeaderDate = -20
    ErrNullPointer = -21
    ErrKeyType = -22
    ErrKeyLength = -23
    ErrKeySize = -24
    ErrRootPage = -25
    ErrKeysPerPage = -26
    ErrFieldCount = -27
    ErrFieldName = -28
    ErrFieldWidth = -29
    ErrFieldDecimals = -30
    ErrFieldType = -31
    ErrRecordLength = -32
    ErrFieldValue = -33
    ErrMemoWidth = -34
    ErrProductionFlag = -35
    ErrReadOnly = -36
    ErrLockViolation = -37
    ErrShareBuffer = -38
    ErrAccess = -40
    ErrHalfPage = -44
    ErrOpen = -46
    ErrFlush = -47
    ErrTagHandle = -48
    ErrBlockSize = -49
    ErrTagName = -50
    ErrMdxBlock = -51
    ErrMdxTagTable = -52
    ErrMdxTagSlot = -53
    ErrMdxTagCount = -54
    ErrMdxTagFlags = -55
    ErrBadSignature = -56
    ErrTagInUse = -57
    ErrLockBlock = -58
    ErrNotAttached = -59
    ErrIdxPageOver = -5000
    ErrIdxPageUnder = -5001


class Error(Exception):
    """A failed call: its code, the code's name and the function of zb.h."""

    def __init__(self, code: int, call: str, detail: str = "") -> None:
        self.code = code
        self.call = call
        self.name = Code(code).name if code in Code.__members__.values() else ""
        # The library sets two bits in the platform's own error numbers.
        what = f"{self.name} ({code})" if self.name else f"error {code & 0x3FFF} of the platform"
        super().__init__(f"{call}: {what}" + (f": {detail}" if detail else ""))


class LockError(Error):
    """A lock that others held for longer than the time that was given."""

    def __init__(self, call: str, detail: str = "") -> None:
        super().__init__(Code.ErrLockViolation, call, detail)
