// Memo files of both formats, driven by the input.
#pragma once

#include "support/tables.h"

namespace fuzz {

struct DbtCalls {
    static constexpr auto Open = ZBDTOPENX;
    static constexpr auto Close = ZBDTCLOSE;
    static constexpr auto Refresh = ZBDTHGET;
    static constexpr auto Pack = ZBDTPACK;
    static int32_t Get(int16_t memo, int32_t block, void** text, int16_t option) {
        return ZBDTRGET(memo, block, text, option);
    }
    static int32_t Put(int16_t memo, int32_t* block, const char* text, uint16_t options) {
        return ZBDTRPUT(memo, block, text, options);
    }
    static int32_t Info(int16_t memo) {
        ZbDbtInfo info;
        return ZBDTINFO(memo, &info);
    }
};

struct FptCalls {
    static constexpr auto Open = ZBDWOPENX;
    static constexpr auto Close = ZBDWCLOSE;
    static constexpr auto Refresh = ZBDWHGET;
    static constexpr auto Pack = ZBDWPACK;
    static int32_t Get(int16_t memo, int32_t block, void** text, int16_t) {
        return ZBDWRGET(memo, block, text);
    }
    static int32_t Put(int16_t memo, int32_t* block, const char* text, uint16_t options) {
        return ZBDWRPUT(memo, block, text, static_cast<int16_t>(options >> 8));
    }
    static int32_t Info(int16_t memo) {
        ZbFptInfo info;
        return ZBDWINFO(memo, &info);
    }
};

// A memo file of six memos, one of them moved.
template <class Calls, class Create>
std::string MemoFile(uint16_t mode, Create create) {
    return MakeFile("A.MEM", [&](Session&) {
        create("A.MEM");
        int16_t memo;
        Calls::Open(&memo, "A.MEM", mode);
        int32_t first = 0;
        for (int i = 0; i < 6; i++) {
            std::string text(static_cast<size_t>(i * i * 70), static_cast<char>('a' + i));
            int32_t block = 0;
            Calls::Put(memo, &block, text.c_str(), ZB_MemoNew);
            if (i == 1) first = block;
        }
        Calls::Put(memo, &first, std::string(1500, 'x').c_str(), ZB_MemoReplace);
        Calls::Close(memo);
    });
}

inline const std::string* DbtSeeds(size_t* count) {
    static const std::string seeds[] = {
        MemoFile<DbtCalls>(1, [](const char* name) { ZBDTCREATEX(name, 1, 1); }),
        MemoFile<DbtCalls>(2, [](const char* name) { ZBDTCREATEX(name, 1, 2); }),
        MemoFile<DbtCalls>(2, [](const char* name) { ZBDTCREATEX(name, 4, 2); })};
    *count = std::size(seeds);
    return seeds;
}

inline const std::string* FptSeeds(size_t* count) {
    static const std::string seeds[] = {
        MemoFile<FptCalls>(0, [](const char* name) { ZBDWCREATE(name, 1); }),
        MemoFile<FptCalls>(0, [](const char* name) { ZBDWCREATE(name, 32); }),
        MemoFile<FptCalls>(0, [](const char* name) { ZBDWCREATE(name, 64); })};
    *count = std::size(seeds);
    return seeds;
}

template <class Calls>
void FuzzMemo(FuzzInput& input, const std::string* seeds, size_t count) {
    uint16_t mode = input.Word();
    std::string file = StartFile(input, seeds, count);
    Session session;
    session.platform.Put("A.MEM", file);
    int16_t memo;
    auto open = [&] { return session.Do([&] { return Calls::Open(&memo, "A.MEM", mode); }); };
    if (open() < 0) return;
    for (int i = 0; i < 48 && !input.Empty(); i++) {
        uint8_t operation = input.Byte();
        auto block = static_cast<int32_t>(input.Number());
        switch (operation & 7) {
            case 0:
            case 1: {
                void* text = nullptr;
                auto option = static_cast<int16_t>(operation & 0x40   ? ZB_MemoUnwrap
                                                   : operation & 0x20 ? 7
                                                                      : 0);
                session.Do([&] { return Calls::Get(memo, block, &text, option); });
                if (text) ZBMFREE(text);
                break;
            }
            case 2:
            case 3:
            case 4: {
                std::string text = input.Text(100);
                if (operation & 0x10)
                    for (int j = input.Pick(10); j > 0 && !text.empty() && text.size() < 40000; j--)
                        text += text;
                auto options = static_cast<uint16_t>(operation & 0x20 ? ZB_MemoReplace : ZB_MemoNew);
                if (operation & 0x40) options = static_cast<uint16_t>(options | input.Byte());
                if (operation & 0x80) options = static_cast<uint16_t>(options ^ input.Byte() << 8);
                Exactly exact(text);
                session.Do([&] { return Calls::Put(memo, &block, exact.text(), options); }, 2);
                break;
            }
            case 5:
                if (std::string* bytes = session.platform.Find("A.MEM")) Damage(input, *bytes);
                break;
            case 6:
                session.Do([&] { return Calls::Refresh(memo); });
                session.Do([&] { return Calls::Info(memo); });
                break;
            case 7:
                session.Do([&] { return Calls::Close(memo); });
                if (open() < 0) return;
                break;
        }
    }
    session.Do([&] { return Calls::Close(memo); });
}

}  // namespace fuzz
