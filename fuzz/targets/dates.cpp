// The parsers of dates and times, and what is made of their results.
#include "support/session.h"

using namespace fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static Session session;
    FuzzInput input(bytes, size);
    auto style = static_cast<int16_t>(input.Pick(20));
    auto other = static_cast<int16_t>(input.Pick(20));
    auto day = static_cast<int32_t>(input.Long());
    auto year = static_cast<int16_t>(input.Word());
    auto month = static_cast<int16_t>(input.Byte() & 0x80 ? input.Word() : input.Pick(14));
    auto dayOfMonth = static_cast<int16_t>(input.Byte() & 0x80 ? input.Word() : input.Pick(34));
    Exactly text(input.Text(64));
    Exactly second(input.Text(64));
    Exactly out(11), name(10), styleName(23), time(9);
    int16_t a, b, c, d;
    int32_t number;
    uint32_t difference;

    int32_t parsed = session.Do([&] { return ZBCDS2I(&a, &b, &c, text.text(), style); });
    session.Do([&] { return ZBCDSVALID(text.text(), style); });
    session.Do([&] { return ZBCDS2LX(&number, text.text(), style); });
    session.Do([&] { return ZBCDS2S(out.text(), other, text.text(), style); });
    session.Do([&] { return ZBCDSDIFF(&difference, text.text(), style, second.text(), other); });
    session.Do([&] { return ZBCDS2DOW(&d, text.text(), style); });
    session.Do([&] { return ZBCDS2DAY(name.text(), text.text(), style); });
    session.Do([&] { return ZBCDS2MON(name.text(), text.text(), style); });
    session.Do([&] { return ZBCDSLEAP(text.text(), style); });
    session.Do([&] { return ZBCDSPERM(&d, text.text(), style); });
    // What was read as a date can be written again, and read as the same one.
    if (parsed == 0) {
        int16_t e, f, g;
        if (session.Do([&] { return ZBCDI2S(out.text(), style, a, b, c); }) != 0)
            Broken("a date can't be written");
        if (session.Do([&] { return ZBCDS2I(&e, &f, &g, out.text(), style); }) != 0 || f != b || g != c)
            Broken("a date comes back as another");
    }

    session.Do([&] { return ZBCDI2L(&number, year, month, dayOfMonth); });
    session.Do([&] { return ZBCDL2I(&a, &b, &c, day); });
    session.Do([&] { return ZBCDI2S(out.text(), style, year, month, dayOfMonth); });
    session.Do([&] { return ZBCDL2SX(out.text(), style, day); });
    session.Do([&] { return ZBCDL2DOW(&d, day); });
    session.Do([&] { return ZBCDSDAY(name.text(), dayOfMonth); });
    session.Do([&] { return ZBCDSMONTH(name.text(), month); });
    ZBCDILEAP(year);
    session.Do([&] { return ZBCDIPERM(&d, year, month); });
    session.Do([&] { return ZBCDSTYLE(static_cast<uint16_t>(style)); });
    uint16_t current;
    session.Do([&] { return ZBCDGSTYLE(&current, styleName.text()); });
    session.Do([&] { return ZBCDSGET(out.text(), style); });

    auto timeStyle = static_cast<int16_t>(style % 4);
    session.Do([&] { return ZBCTS2I(&a, &b, &c, text.text(), timeStyle); });
    session.Do([&] { return ZBCTSVALID(text.text(), timeStyle); });
    session.Do([&] {
        return ZBCTSDIFF(&difference, text.text(), timeStyle, second.text(), static_cast<int16_t>(other % 4));
    });
    session.Do([&] { return ZBCTI2S(time.text(), timeStyle, year, month, dayOfMonth); });
    session.Do([&] { return ZBCTSGET(time.text(), timeStyle); });

    Exactly key(8), packed(12);
    session.Do([&] { return ZBDNKDATE(key.data(), text.text(), style); });
    session.Do([&] { return ZBDIKDATE(key.data(), text.text(), style); });
    session.Do([&] { return ZBDMKDATE(key.data(), text.text(), style); });
    Exactly dateKey(10);
    session.Do([&] { return ZBDCKDATE(dateKey.data(), text.text(), style); });
    double value;
    memcpy(&value, text.text(), std::min(sizeof value, text.Size()));
    if (text.Size() >= sizeof value) session.Do([&] { return ZBDMKNUM(packed.data(), value); });
    return 0;
}
