// The memo calls as tests like them: texts as strings, blocks as results.
#pragma once

#include "support/support.h"

namespace test {

// A .DBT file's numbers, and an .FPT file's.
Bytes Le32(uint32_t value);
Bytes Be32(uint32_t value);
uint32_t FromLe32(const Bytes& bytes, size_t offset);

// The name reached by as many steps to the same directory as make it `length` long.
std::string LongName(const std::string& name, size_t length);

// `length` characters without an end mark, different from one seed to the next.
std::string Text(size_t length, unsigned seed = 0);

class DbtTest : public LibraryTest {
  protected:
    // A new file, open.
    int16_t Make(int dialect, int multiplier = 1, const char* path = "memo.dbt");
    int16_t Open(int mode, const char* path = "memo.dbt");

    // The block that a write stored, whatever its code; the code stands.
    int32_t Put(int16_t memo, const std::string& text, int width = 0);
    int32_t Replace(int16_t memo, int32_t block, const std::string& text, int width = 0);

    // The text, or the code in angle brackets.
    std::string Get(int16_t memo, int32_t block, int16_t option = 0);
};

class FptTest : public LibraryTest {
  protected:
    int16_t Make(int size, const char* path = "memo.fpt");
    int16_t Open(int mode, const char* path = "memo.fpt");
    int32_t Put(int16_t memo, const std::string& text);
    int32_t Replace(int16_t memo, int32_t block, const std::string& text);
    std::string Get(int16_t memo, int32_t block);
};

}  // namespace test
