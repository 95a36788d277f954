// The records of the interface, whose bytes hosts rely on: the same on every target
// but for the width of an address.
#include <cstddef>

#include "zb.h"

namespace {

constexpr size_t Address = sizeof(void*);

static_assert(sizeof(ZbBlock) == 4);

static_assert(sizeof(ZbFieldSpec) == 18);
static_assert(offsetof(ZbFieldSpec, type) == 12);
static_assert(offsetof(ZbFieldSpec, width) == 14);
static_assert(offsetof(ZbFieldSpec, decimals) == 16);

static_assert(sizeof(ZbDataInfo) == 283);
static_assert(offsetof(ZbDataInfo, lockOffset) == 0);
static_assert(offsetof(ZbDataInfo, lockLength) == 4);
static_assert(offsetof(ZbDataInfo, infoFlags) == 8);
static_assert(offsetof(ZbDataInfo, name) == 10);
static_assert(offsetof(ZbDataInfo, dialect) == 271);
static_assert(offsetof(ZbDataInfo, hasMemo) == 273);
static_assert(offsetof(ZbDataInfo, production) == 275);
static_assert(offsetof(ZbDataInfo, transaction) == 277);
static_assert(offsetof(ZbDataInfo, encryption) == 279);
static_assert(offsetof(ZbDataInfo, reservedFlag) == 281);

static_assert(sizeof(ZbDbtInfo) == 267);
static_assert(offsetof(ZbDbtInfo, path) == 2);
static_assert(offsetof(ZbDbtInfo, dialect) == 263);
static_assert(offsetof(ZbDbtInfo, reported) == 265);

static_assert(sizeof(ZbFptInfo) == 265);
static_assert(offsetof(ZbFptInfo, path) == 2);
static_assert(offsetof(ZbFptInfo, reported) == 263);

static_assert(sizeof(ZbNdxInfo) == 373);
static_assert(offsetof(ZbNdxInfo, accessFlags) == 261);
static_assert(offsetof(ZbNdxInfo, keyLength) == 263);
static_assert(offsetof(ZbNdxInfo, keyType) == 265);
static_assert(offsetof(ZbNdxInfo, keyFlags) == 267);
static_assert(offsetof(ZbNdxInfo, reportedFlag) == 269);
static_assert(offsetof(ZbNdxInfo, expressionLength) == 271);
static_assert(offsetof(ZbNdxInfo, expression) == 273);

static_assert(sizeof(ZbNtxInfo) == 375);
static_assert(offsetof(ZbNtxInfo, decimals) == 269);
static_assert(offsetof(ZbNtxInfo, reportedFlag) == 271);
static_assert(offsetof(ZbNtxInfo, expressionLength) == 273);
static_assert(offsetof(ZbNtxInfo, expression) == 275);
static_assert(sizeof(ZbIdxInfo) == 375);

static_assert(sizeof(ZbMdxInfo) == 267);
static_assert(offsetof(ZbMdxInfo, flags) == 2);
static_assert(offsetof(ZbMdxInfo, path) == 4);
static_assert(offsetof(ZbMdxInfo, reported) == 265);

static_assert(sizeof(ZbMdxTagInfo) == 120);
static_assert(offsetof(ZbMdxTagInfo, zero) == 10);
static_assert(offsetof(ZbMdxTagInfo, keyLength) == 12);
static_assert(offsetof(ZbMdxTagInfo, keyType) == 14);
static_assert(offsetof(ZbMdxTagInfo, options) == 16);
static_assert(offsetof(ZbMdxTagInfo, expressionLength) == 18);
static_assert(offsetof(ZbMdxTagInfo, expression) == 20);

// On 32 bits the widths of the fields add up, without a gap.
constexpr size_t On(size_t bits32, size_t bits64) { return Address == 4 ? bits32 : bits64; }

static_assert(sizeof(ZbDataRecordInfo) == On(8, 16));
static_assert(offsetof(ZbDataRecordInfo, fieldCount) == 2);
static_assert(offsetof(ZbDataRecordInfo, buffer) == On(4, 8));

static_assert(sizeof(ZbEvalResult) == On(8, 16));
static_assert(offsetof(ZbEvalResult, type) == On(4, 8));
static_assert(offsetof(ZbEvalResult, length) == On(6, 10));

static_assert(sizeof(ZbEvalState) == On(32, 56));
static_assert(offsetof(ZbEvalState, ValueBlock) == 0);
static_assert(offsetof(ZbEvalState, ValuePtr) == On(4, 8));
static_assert(offsetof(ZbEvalState, ValueType) == On(8, 16));
static_assert(offsetof(ZbEvalState, ValueLength) == On(10, 18));
static_assert(offsetof(ZbEvalState, Cursor) == On(12, 24));
static_assert(offsetof(ZbEvalState, ResultBlock) == On(16, 32));
static_assert(offsetof(ZbEvalState, ResultPtr) == On(20, 40));
static_assert(offsetof(ZbEvalState, ResultType) == On(24, 48));
static_assert(offsetof(ZbEvalState, ResultLength) == On(26, 50));
static_assert(offsetof(ZbEvalState, DateAsKey) == On(28, 52));

}  // namespace
