#include "failure.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "zb.h"

namespace tool {
namespace {

struct CodeText {
    int code;
    const char* name;
    const char* meaning;
};

constexpr CodeText kCodes[] = {
    {ZB_WarnFuncExists, "WarnFuncExists", "a user function of that name is already registered"},
    {ZB_WarnNoFlush, "WarnNoFlush", "there is never anything to flush"},
    {ZB_WarnFileSize, "WarnFileSize", "the file's length doesn't fit its header"},
    {ZB_WarnRounded, "WarnRounded", "a number changed on its way into the field's text"},
    {ZB_WarnTruncated, "WarnTruncated", "a text was cut to the field's width"},
    {ZB_KeyNear, "KeyNear", "not found exactly"},
    {ZB_KeyEnd, "KeyEnd", "the end of the index was passed"},
    {ZB_KeyEmpty, "KeyEmpty", "the index is empty, or the date is blank"},
    {ZB_WarnDeleted, "WarnDeleted", "the record carries the delete flag"},
    {ZB_Ok, "Ok", "success"},
    {ZB_ErrWrite, "ErrWrite", "a write failed or was short"},
    {ZB_ErrRead, "ErrRead", "a read failed or was short"},
    {ZB_ErrMemory, "ErrMemory", "out of memory"},
    {ZB_ErrSeek, "ErrSeek", "a position or record number lies outside the file"},
    {ZB_ErrRenameMissing, "ErrRenameMissing", "the source of a rename doesn't exist"},
    {ZB_ErrStructure, "ErrStructure", "the file's structure is damaged"},
    {ZB_ErrExpression, "ErrExpression", "the expression is malformed, too long or of the wrong type"},
    {ZB_ErrNoSlot, "ErrNoSlot", "too many open files, or no free tag"},
    {ZB_ErrNoPageHeld, "ErrNoPageHeld", "a page was put while none was held"},
    {ZB_ErrPageNotHeld, "ErrPageNotHeld", "a page was put that isn't held"},
    {ZB_ErrBadOption, "ErrBadOption", "an option, mode, dialect or style that isn't known"},
    {ZB_ErrBadHandle, "ErrBadHandle", "a handle that isn't open"},
    {ZB_ErrBadName, "ErrBadName", "an empty or unusable file name"},
    {ZB_ErrBadDate, "ErrBadDate", "an invalid date"},
    {ZB_ErrBadTime, "ErrBadTime", "an invalid time"},
    {ZB_ErrMemoShort, "ErrMemoShort", "the memo file is shorter than its header"},
    {ZB_ErrFileType, "ErrFileType", "the version or signature doesn't fit the dialect or file type"},
    {ZB_ErrHeaderLength, "ErrHeaderLength", "the header's length doesn't fit the format"},
    {ZB_ErrHeaderDate, "ErrHeaderDate", "the header's date is out of range"},
    {ZB_ErrNullPointer, "ErrNullPointer", "a required pointer is null"},
    {ZB_ErrKeyType, "ErrKeyType", "an unknown key type"},
    {ZB_ErrKeyLength, "ErrKeyLength", "a key length out of range"},
    {ZB_ErrKeySize, "ErrKeySize", "the header's key length and entry size don't agree"},
    {ZB_ErrRootPage, "ErrRootPage", "the header's root page lies outside the file"},
    {ZB_ErrKeysPerPage, "ErrKeysPerPage", "the header's keys per page don't fit the key length"},
    {ZB_ErrFieldCount, "ErrFieldCount", "a field count or field number out of range"},
    {ZB_ErrFieldName, "ErrFieldName", "a field name that is empty, too long or unknown"},
    {ZB_ErrFieldWidth, "ErrFieldWidth", "a field width out of range"},
    {ZB_ErrFieldDecimals, "ErrFieldDecimals", "decimals out of range"},
    {ZB_ErrFieldType, "ErrFieldType", "an unknown field type, or one that the dialect lacks"},
    {ZB_ErrRecordLength, "ErrRecordLength",
     "the record length is over the limit or isn't the sum of the widths"},
    {ZB_ErrFieldValue, "ErrFieldValue", "a value that the field can't hold"},
    {ZB_ErrMemoWidth, "ErrMemoWidth", "a memo wrap width outside 10 to 132"},
    {ZB_ErrProductionFlag, "ErrProductionFlag", "the production-index byte is neither 0 nor 1"},
    {ZB_ErrReadOnly, "ErrReadOnly", "the file can't be written"},
    {ZB_ErrLockViolation, "ErrLockViolation", "a lock is held by another program"},
    {ZB_ErrShareBuffer, "ErrShareBuffer", "the system ran out of lock space"},
    {ZB_ErrAccess, "ErrAccess", "an erase or rename was refused"},
    {ZB_ErrHalfPage, "ErrHalfPage", "the header's half-page value doesn't fit"},
    {ZB_ErrOpen, "ErrOpen", "the file couldn't be opened or created"},
    {ZB_ErrFlush, "ErrFlush", "a flush failed"},
    {ZB_ErrTagHandle, "ErrTagHandle", "a tag handle out of range"},
    {ZB_ErrBlockSize, "ErrBlockSize", "a block size or multiplier out of range"},
    {ZB_ErrTagName, "ErrTagName", "a tag name that is bad or can't be found"},
    {ZB_ErrMdxBlock, "ErrMdxBlock", "the block length doesn't fit the multiplier"},
    {ZB_ErrMdxTagTable, "ErrMdxTagTable", "the tag table hasn't 48 entries"},
    {ZB_ErrMdxTagSlot, "ErrMdxTagSlot", "a tag table entry hasn't 32 bytes"},
    {ZB_ErrMdxTagCount, "ErrMdxTagCount", "the tag count lies outside 0 to 47"},
    {ZB_ErrMdxTagFlags, "ErrMdxTagFlags", "a tag's flags hold bits that aren't allowed"},
    {ZB_ErrBadSignature, "ErrBadSignature", "the memo file's header marks are wrong"},
    {ZB_ErrTagInUse, "ErrTagInUse", "the tag is in use"},
    {ZB_ErrLockBlock, "ErrLockBlock", "a memory block couldn't be locked"},
    {ZB_ErrNotAttached, "ErrNotAttached", "the library isn't started"},
    {ZB_ErrIdxPageOver, "ErrIdxPageOver", "the page pool is out of step"},
    {ZB_ErrIdxPageUnder, "ErrIdxPageUnder", "the page pool is out of step"},
};

constexpr int kDamage[] = {ZB_ErrRead,        ZB_ErrSeek,         ZB_ErrStructure,    ZB_ErrMemoShort,
                           ZB_ErrFileType,    ZB_ErrHeaderLength, ZB_ErrHeaderDate,   ZB_ErrKeySize,
                           ZB_ErrRootPage,    ZB_ErrKeysPerPage,  ZB_ErrRecordLength, ZB_ErrProductionFlag,
                           ZB_ErrHalfPage,    ZB_ErrMdxBlock,     ZB_ErrMdxTagTable,  ZB_ErrMdxTagSlot,
                           ZB_ErrMdxTagCount, ZB_ErrMdxTagFlags,  ZB_ErrBadSignature};

// Failures of the system come back as its error number with these bits set; the
// numbers are those of one platform on all of them.
constexpr int kSystemBits = 0xC000;

std::string DescribeSystem(int number) {
    switch (number) {
        case 2: return "no such file";
        case 13: return "permission denied";
        case 32: return "another program has the file open";
        case 33: return "a lock is held by another program";
        case 112: return "the disk is full";
        case 158: return "the range wasn't locked";
        default: return std::strerror(number);
    }
}

}  // namespace

std::string DescribeCode(int code) {
    std::string number = " (" + std::to_string(code) + "): ";
    for (const CodeText& text : kCodes)
        if (text.code == code) return text.name + number + text.meaning;
    if ((code & kSystemBits) == kSystemBits)
        return "System" + number + DescribeSystem(code & ~kSystemBits & 0xFFFF);
    return "Unknown" + number + "a code without a name";
}

Failure CodeFailure(int code, const std::string& subject, const std::string& detail) {
    Exit status = Exit::other;
    if (code == ZB_ErrRenameMissing) status = Exit::notFound;
    if (std::find(std::begin(kDamage), std::end(kDamage), code) != std::end(kDamage)) status = Exit::damaged;
    return Failure(status, subject + ": " + DescribeCode(code) + (detail.empty() ? "" : "; " + detail));
}

int Check(int code, const std::string& subject, const std::string& detail) {
    if (code >= 0) return code;
    ZBESCODE(0);
    throw CodeFailure(code, subject, detail);
}

}  // namespace tool
