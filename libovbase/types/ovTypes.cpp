#include "types/ovTypes.h"

#include "types/MString.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <istream>
#include <ostream>

namespace ovTypes {

namespace {

const std::string kDefaultContentPrefix = "dc:";
// Computed once at start-up, as eraseProtocol() expects.
const size_t kDefaultContentPrefixLength = kDefaultContentPrefix.size();

// The device keeps a 32-bit time_t; with a 64-bit one (a 64-bit host, or _TIME_BITS=64) a
// result that does not fit gives -1, as the device's own call fails past its range.
int32_t fitTime32(time_t t) {
    if (t < INT32_MIN || t > INT32_MAX)
        return -1;
    return static_cast<int32_t>(t);
}

// Sums and differences of counts wrap at 32 bits in every build. They are taken in 64 bits:
// in a long, which is 32 bits on the phone, an overflow would be undefined.
int32_t wrap32(int64_t value) {
    return static_cast<int32_t>(value);
}

bool utcFields(int32_t count, struct tm& out) {
    time_t t = count;
    return gmtime_r(&t, &out) != nullptr;
}

// One gmtime field of the count, -1 when gmtime fails.
int utcField(int32_t count, int tm::*field) {
    struct tm f;
    return utcFields(count, f) ? f.*field : -1;
}

// mktime of the fields read as local time (the daylight-saving field left clear), fitted to
// 32 bits.
int32_t localTime32(int year, int month, int day, int hour, int minute, int second) {
    struct tm fields;
    std::memset(&fields, 0, sizeof fields);
    fields.tm_year = year;
    fields.tm_mon = month;
    fields.tm_mday = day;
    fields.tm_hour = hour;
    fields.tm_min = minute;
    fields.tm_sec = second;
    return fitTime32(mktime(&fields));
}

} // namespace

String::String(const ID& id) {
    resize(id.size());
    for (size_t i = 0; i < id.size(); ++i)
        (*this)[i] = static_cast<wchar_t>(static_cast<unsigned char>(id[i]));
}

ID::ID(const String& text) {
    resize(text.size());
    for (size_t i = 0; i < text.size(); ++i)
        (*this)[i] = static_cast<char>(static_cast<uint32_t>(text[i]) & 0xFF);
}

bool ID::isDefaultContentID() const {
    return compare(0, kDefaultContentPrefixLength, kDefaultContentPrefix) == 0;
}

ID ID::eraseProtocol() const {
    if (size() < kDefaultContentPrefixLength)
        return ID();
    return ID(substr(kDefaultContentPrefixLength));
}

// Left at zero rather than indeterminate, so that copying a default Time is well defined.
Time::Time() : mTime(0) {}

Time::Time(long seconds) : mTime(static_cast<int32_t>(seconds)) {}

Time::Time(const Time& other) : mTime(other.mTime) {}

Time::Time(int year, int month, int day, int hour, int minute, int second)
    : mTime(localTime32(year, month, day, hour, minute, second)) {}

Time::~Time() {}

Time Time::getCurrentTime() {
    return Time(static_cast<long>(fitTime32(time(nullptr))));
}

int Time::getYear() const {
    return utcField(mTime, &tm::tm_year);
}

int Time::getMonth() const {
    return utcField(mTime, &tm::tm_mon);
}

int Time::getDay() const {
    return utcField(mTime, &tm::tm_mday);
}

int Time::getHour() const {
    return utcField(mTime, &tm::tm_hour);
}

int Time::getMin() const {
    return utcField(mTime, &tm::tm_min);
}

int Time::getSec() const {
    return utcField(mTime, &tm::tm_sec);
}

std::string Time::toISO8601() const {
    char buf[96];
    std::snprintf(buf, sizeof buf, "%4d-%2d-%2dT%2d-%2d-%2d", getYear(), getMonth(), getDay(),
                  getHour(), getMin(), getSec());
    return buf;
}

Time Time::fromISO8601(const MString&) {
    // The text is never scanned: the fields come from a buffer that holds nothing. It is
    // zeroed so the scan stays defined; the fields keep whatever the scan leaves in them.
    char unread[64];
    std::memset(unread, 0, sizeof unread);
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    std::sscanf(unread, "%4d-%2d-%2dT%2d-%2d-%2d", &year, &month, &day, &hour, &minute, &second);
    return Time(year, month, day, hour, minute, second);
}

Time Time::from(const MString&) {
    return Time(0L);
}

std::string Time::toString() const {
    time_t t = mTime;
    char buf[64];
    if (!ctime_r(&t, buf))
        return std::string();
    return buf;
}

Time& Time::operator=(long seconds) {
    mTime = static_cast<int32_t>(seconds);
    return *this;
}

TimeSpan Time::operator-(const Time& other) const {
    return TimeSpan(wrap32(int64_t(mTime) - other.mTime));
}

Time Time::operator-(const TimeSpan& span) const {
    return Time(wrap32(int64_t(mTime) - span.getCount()));
}

Time Time::operator+(const TimeSpan& span) const {
    return Time(wrap32(int64_t(mTime) + span.getCount()));
}

Time& Time::operator-=(const TimeSpan& span) {
    mTime = wrap32(int64_t(mTime) - span.getCount());
    return *this;
}

Time& Time::operator+=(const TimeSpan& span) {
    mTime = wrap32(int64_t(mTime) + span.getCount());
    return *this;
}

TimeSpan::TimeSpan() : mSpan(0) {}

TimeSpan::TimeSpan(long seconds) : mSpan(static_cast<int32_t>(seconds)) {}

TimeSpan::TimeSpan(const TimeSpan& other) : mSpan(other.mSpan) {}

// A date in January 1900: out of the 32-bit range, so -1 unless the days carry it back in.
TimeSpan::TimeSpan(int days, int hours, int minutes, int seconds)
    : mSpan(localTime32(0, 0, days, hours, minutes, seconds)) {}

TimeSpan::~TimeSpan() {}

int TimeSpan::getDays() const {
    return utcField(mSpan, &tm::tm_mday);
}

int TimeSpan::getHours() const {
    return utcField(mSpan, &tm::tm_hour);
}

int TimeSpan::getMinutes() const {
    return utcField(mSpan, &tm::tm_min);
}

int TimeSpan::getSeconds() const {
    return utcField(mSpan, &tm::tm_sec);
}

int TimeSpan::getTotalHours() const {
    struct tm f;
    return utcFields(mSpan, f) ? f.tm_hour + 24 * f.tm_mday : -1;
}

int TimeSpan::getTotalMinutes() const {
    struct tm f;
    return utcFields(mSpan, f) ? f.tm_min + 60 * (f.tm_hour + 24 * f.tm_mday) : -1;
}

int TimeSpan::getTotalSeconds() const {
    struct tm f;
    return utcFields(mSpan, f) ? f.tm_sec + 60 * (f.tm_min + 60 * (f.tm_hour + 24 * f.tm_mday))
                               : -1;
}

TimeSpan TimeSpan::operator+(const TimeSpan& other) const {
    return TimeSpan(wrap32(int64_t(mSpan) + other.mSpan));
}

TimeSpan TimeSpan::operator-(const TimeSpan& other) const {
    return TimeSpan(wrap32(int64_t(mSpan) - other.mSpan));
}

TimeSpan& TimeSpan::operator+=(const TimeSpan& other) {
    mSpan = wrap32(int64_t(mSpan) + other.mSpan);
    return *this;
}

TimeSpan& TimeSpan::operator-=(const TimeSpan& other) {
    mSpan = wrap32(int64_t(mSpan) - other.mSpan);
    return *this;
}

std::ostream& operator<<(std::ostream& out, const String& text) {
    return out << static_cast<const std::string&>(ID(text));
}

long fromMillisSinceEpoch(const String& millis) {
    if (millis.size() < 4)
        return 0;
    std::wstring seconds = millis.substr(0, millis.size() - 3);
    return std::wcstol(seconds.c_str(), nullptr, 0);
}

ID toString(long seconds) {
    time_t t = seconds;
    struct tm fields;
    if (!gmtime_r(&t, &fields))
        return ID();
    char buf[64];
    if (!asctime_r(&fields, buf))
        return ID();
    return ID(buf);
}

std::ostream& operator<<(std::ostream& out, const Time& time) {
    return out << time.toISO8601();
}

std::istream& operator>>(std::istream& in, Time& time) {
    char block[256];
    in.read(block, sizeof block);
    MString text(block, static_cast<size_t>(in.gcount()));
    time = Time::from(text);
    return in;
}

} // namespace ovTypes
