#include "types/MString.h"
#include "types/ovTypes.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <sstream>
#include <vector>

using ovTypes::ID;
using ovTypes::String;
using ovTypes::Time;
using ovTypes::TimeSpan;

namespace {

// Sets the local time zone for one test and puts the previous one back.
class ZoneGuard {
public:
    explicit ZoneGuard(const char* zone) {
        if (const char* old = std::getenv("TZ"))
            mOld = old;
        setenv("TZ", zone, 1);
        tzset();
    }
    ~ZoneGuard() {
        if (mOld)
            setenv("TZ", mOld->c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }

private:
    std::optional<std::string> mOld;
};

// Whether an ID names default content, and what erasing a protocol (three bytes) leaves.
TEST(ID, DefaultContentPrefix) {
    const std::pair<const char*, bool> prefixes[] = {
        {"dc:logo", true}, {"dc:", true}, {"xdc:logo", false}, {"dc", false}, {"DC:logo", false},
    };
    for (const auto& row : prefixes)
        EXPECT_EQ(ID(row.first).isDefaultContentID(), row.second) << row.first;
    const std::pair<const char*, const char*> erased[] = {
        {"dc:logo", "logo"}, {"abcdef", "def"}, {"ab", ""}, {"abc", ""}};
    for (const auto& row : erased)
        EXPECT_EQ(ID(row.first).eraseProtocol(), row.second) << row.first;
}

TEST(ID, ConversionWithStringIsPerElementNotUtf8) {
    EXPECT_EQ(ID(String(L"\u20AC")), ID("\xAC"));
    EXPECT_EQ(ID(String(L"a\U0001F600b")), ID("a\x00"
                                              "b",
                                              3));

    std::string all;
    for (int b = 0; b < 256; ++b)
        all.push_back(static_cast<char>(b));
    String wide = ID(all);
    ASSERT_EQ(wide.size(), 256u);
    for (int b = 0; b < 256; ++b)
        EXPECT_EQ(static_cast<int>(wide[b]), b);
    EXPECT_EQ(ID(wide), ID(all));
}

// The last three digits are dropped and the rest read as wcstol reads it, base prefixes and all.
TEST(TypesFunctions, FromMillisSinceEpoch) {
    const std::pair<const wchar_t*, long> rows[] = {
        {L"999", 0},      {L"", 0},
        {L"1000", 1},     {L"1999", 1},
        {L"0x1F000", 31}, {L"0100000", 64},
        {L"12ab000", 12}, {L"abcd", 0},
        {L"-5000", -5},   {L"1170000000000", 1170000000},
    };
    for (const auto& row : rows)
        EXPECT_EQ(ovTypes::fromMillisSinceEpoch(row.first), row.second) << ID(String(row.first));
}

// ovTypes::toString is UTC asctime with its newline; Time's getters are UTC too, while its
// field constructors read local time and its toString is ctime, local again.
TEST(Time, UtcTextsAndLocalFieldConstructors) {
    ZoneGuard zone("EST5");
    EXPECT_EQ(ovTypes::toString(0), "Thu Jan  1 00:00:00 1970\n");
    EXPECT_EQ(ovTypes::toString(1170000000), "Sun Jan 28 16:00:00 2007\n");
    // The largest long: with a 32-bit long (the phone) the last second a 32-bit count holds;
    // a 64-bit long lies past every year gmtime can give.
    EXPECT_EQ(ovTypes::toString(LONG_MAX), sizeof(long) == 4 ? "Tue Jan 19 03:14:07 2038\n" : "");

    Time t(107, 0, 28, 16, 0, 0);
    EXPECT_EQ(t.getCount(), 1170000000 + 5 * 3600);
    const int fields[] = {t.getYear(), t.getMonth(), t.getDay(),
                          t.getHour(), t.getMin(),   t.getSec()};
    EXPECT_EQ(std::vector<int>(fields, fields + 6), (std::vector<int>{107, 0, 28, 21, 0, 0}));
    EXPECT_EQ(t.toString(), "Sun Jan 28 16:00:00 2007\n");

    // Field constructors give -1 outside 32 bits; TimeSpan's four fields are a date counted
    // from 1900-01-01.
    EXPECT_EQ(Time(200, 0, 1, 0, 0, 0).getCount(), -1);           // 2100
    EXPECT_EQ(Time(138, 0, 18, 22, 14, 7).getCount(), INT32_MAX); // 03:14:07 UTC
    EXPECT_EQ(TimeSpan(0, 0, 0, 0).getCount(), -1);
    EXPECT_EQ(TimeSpan(1, 2, 3, 4).getCount(), -1);
    // 25567 days after 1900-01-01 is the epoch: the range check is a check, not a constant.
    EXPECT_EQ(TimeSpan(25568, 0, 0, 10).getCount(), 5 * 3600 + 10);
#if LONG_MAX > INT32_MAX
    // The count is 32 bits wide: where a long holds more, larger seconds wrap into it (the
    // phone's 32-bit long cannot hold them at all).
    EXPECT_EQ(Time(0x100000005L).getCount(), 5);
#endif
}

TEST(TypesFunctions, ReadingATimeTakesABlockAndGivesTheEpoch) {
    // Whatever the text, reading yields the epoch; up to 256 bytes are consumed.
    std::istringstream in(" 107- 0-28T16- 0- 0" + std::string(300, 'x'));
    Time t(12345);
    in >> t;
    EXPECT_EQ(t, Time(0));
    EXPECT_EQ(in.tellg(), 256);

    std::istringstream shortIn("1170000000");
    Time u(5);
    shortIn >> u;
    EXPECT_EQ(u, Time(0));
    EXPECT_TRUE(shortIn.eof());
}

TEST(Time, Iso8601IsTheSpacePaddedTmForm) {
    EXPECT_EQ(Time(0).toISO8601(), "  70- 0- 1T 0- 0- 0");
    EXPECT_EQ(Time(1170000000 + 3723).toISO8601(), " 107- 0-28T17- 2- 3");
    EXPECT_EQ(Time::from(MString("2007-01-28T16:00:00")), Time(0));
}

TEST(Time, ArithmeticAndSignedComparison) {
    Time a(100), b(40);
    EXPECT_EQ(b - a, TimeSpan(-60L));
    a -= TimeSpan(20L);
    EXPECT_EQ(a + TimeSpan(5L), Time(85));
    EXPECT_LT(Time(-1), Time(0));
    EXPECT_GT(Time(INT32_MAX), Time(INT32_MIN));
    // 32-bit counts wrap, whatever the width of long.
    EXPECT_EQ(Time(INT32_MAX) + TimeSpan(1L), Time(INT32_MIN));
    EXPECT_EQ(Time(INT32_MIN) - Time(INT32_MAX), TimeSpan(1L));
    EXPECT_LT(TimeSpan(-7L), TimeSpan(3L));
}

// Days, hours, minutes, seconds, then the total hours, minutes and seconds.
std::vector<long> fieldsOf(const TimeSpan& span) {
    return {span.getDays(),       span.getHours(),        span.getMinutes(),     span.getSeconds(),
            span.getTotalHours(), span.getTotalMinutes(), span.getTotalSeconds()};
}

TEST(TimeSpan, GettersReadCalendarFieldsOfTheCount) {
    // The fields are those of a date: the days count from 1, and 32 days wrap into February,
    // which the totals ignore.
    EXPECT_EQ(fieldsOf(TimeSpan(0L)), (std::vector<long>{1, 0, 0, 0, 24, 1440, 86400}));
    EXPECT_EQ(fieldsOf(TimeSpan(90061L)), // one day, one hour, one minute, one second
              (std::vector<long>{2, 1, 1, 1, 49, 49 * 60 + 1, (49 * 60 + 1) * 60 + 1}));
    EXPECT_EQ(fieldsOf(TimeSpan(32L * 86400)), (std::vector<long>{2, 0, 0, 0, 48, 2880, 172800}));
}

} // namespace
