// The small value types every part of the library passes around: user-visible text (String),
// keys and identifiers (ID), instants (Time) and durations (TimeSpan), with the free functions
// that turn them into and out of the text forms of settings, streams and logs.
#ifndef OVBASE_TYPES_OVTYPES_H
#define OVBASE_TYPES_OVTYPES_H

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>

class MString;

namespace ovTypes {

class ID;

// Wide text, one code point per element. Made from an ID byte by byte (ISO 8859-1), never
// through UTF-8: text that must survive as UTF-8 goes through UTF_8Util.
class String : public std::wstring {
public:
    String() {}
    String(const String& other) : std::wstring(other) {}
    String(String&& other) noexcept : std::wstring(std::move(other)) {}
    String(const std::wstring& text) : std::wstring(text) {}
    String(const wchar_t* text) : std::wstring(text) {}
    String(const wchar_t* text, size_t length) : std::wstring(text, length) {}
    String(const ID& id);

    String& operator=(String other) {
        std::wstring::operator=(std::move(other));
        return *this;
    }
};

// Narrow byte string for keys, identifiers, topics and file names; ordered byte-wise like
// std::string. Made from a String by keeping the low byte of each code point.
class ID : public std::string {
public:
    ID() {}
    ID(const ID& other) : std::string(other) {}
    ID(ID&& other) noexcept : std::string(std::move(other)) {}
    ID(const std::string& text) : std::string(text) {}
    ID(const char* text) : std::string(text) {}
    ID(const char* text, size_t length) : std::string(text, length) {}
    ID(const String& text);

    ID& operator=(ID other) {
        std::string::operator=(std::move(other));
        return *this;
    }

    // True when the ID names pre-loaded default content ("dc:" prefix).
    bool isDefaultContentID() const;
    // The ID without its first three characters ("dc:"); empty when shorter. The prefix is
    // not checked: callers test isDefaultContentID() first.
    ID eraseProtocol() const;
};

class TimeSpan;

// An instant: signed 32-bit seconds since 1970-01-01 00:00:00 UTC. The six-integer
// constructor reads local time (mktime) while the getters report UTC (gmtime); callers rely
// on exactly that.
// The count is the phone's 32-bit time_t, and stays so where time_t or long is wider (a 64-bit
// host, or a 32-bit target built with _TIME_BITS=64): a time_t from the C library (time,
// mktime) that does not fit gives -1, as the phone's own calls fail outside the range, and sums
// wrap at 32 bits, so every build reads, computes and writes the same counts. Nothing here
// depends on the width of time_t: a program may be built either way against the library.
class Time {
public:
    Time();
    Time(long seconds);
    Time(const Time& other);
    // Fields in tm units: year since 1900, month 0-11, day 1-31. -1 when out of range.
    Time(int year, int month, int day, int hour, int minute, int second);
    virtual ~Time();

    static Time getCurrentTime();

    // gmtime fields of the count in tm units; -1 when gmtime fails.
    int getYear() const;
    int getMonth() const;
    int getDay() const;
    int getHour() const;
    int getMin() const;
    int getSec() const;

    // "%4d-%2d-%2dT%2d-%2d-%2d" of the getters: space padded, tm year, 0-based month and
    // hyphens in the time. Streams and logs carry exactly this text.
    std::string toISO8601() const;
    // Never reads its argument; the result is undefined and no caller may rely on it.
    static Time fromISO8601(const MString& text);
    // Ignores its argument: always the epoch.
    static Time from(const MString& text);
    // ctime of the count (local time, 24 characters and a newline).
    std::string toString() const;

    // The raw count of seconds.
    long getCount() const { return mTime; }

    Time& operator=(const Time& other) = default;
    Time& operator=(long seconds);
    TimeSpan operator-(const Time& other) const;
    Time operator-(const TimeSpan& span) const;
    Time operator+(const TimeSpan& span) const;
    Time& operator-=(const TimeSpan& span);
    Time& operator+=(const TimeSpan& span);

    bool operator==(const Time& other) const { return mTime == other.mTime; }
    bool operator!=(const Time& other) const { return mTime != other.mTime; }
    bool operator<(const Time& other) const { return mTime < other.mTime; }
    bool operator>(const Time& other) const { return mTime > other.mTime; }
    bool operator<=(const Time& other) const { return mTime <= other.mTime; }
    bool operator>=(const Time& other) const { return mTime >= other.mTime; }

private:
    int32_t mTime;
};

// A duration: signed 32-bit seconds. Its getters read the gmtime fields of the count, so a
// span of 0 seconds reports day 1 (the epoch's day of month) and 24 total hours.
class TimeSpan {
public:
    TimeSpan();
    TimeSpan(long seconds);
    TimeSpan(const TimeSpan& other);
    // Builds a date in 1900 and keeps its mktime result, which lies outside the 32-bit range:
    // the span holds -1 unless the days carry it into range.
    TimeSpan(int days, int hours, int minutes, int seconds);
    virtual ~TimeSpan();

    int getDays() const;
    int getHours() const;
    int getMinutes() const;
    int getSeconds() const;
    int getTotalHours() const;
    int getTotalMinutes() const;
    int getTotalSeconds() const;

    // The raw count of seconds.
    long getCount() const { return mSpan; }

    TimeSpan& operator=(const TimeSpan& other) = default;
    TimeSpan operator+(const TimeSpan& other) const;
    TimeSpan operator-(const TimeSpan& other) const;
    TimeSpan& operator+=(const TimeSpan& other);
    TimeSpan& operator-=(const TimeSpan& other);

    bool operator==(const TimeSpan& other) const { return mSpan == other.mSpan; }
    bool operator!=(const TimeSpan& other) const { return mSpan != other.mSpan; }
    bool operator<(const TimeSpan& other) const { return mSpan < other.mSpan; }
    bool operator>(const TimeSpan& other) const { return mSpan > other.mSpan; }
    bool operator<=(const TimeSpan& other) const { return mSpan <= other.mSpan; }
    bool operator>=(const TimeSpan& other) const { return mSpan >= other.mSpan; }

private:
    int32_t mSpan;
};

// Writes the text narrowed to an ID (low byte of each code point).
std::ostream& operator<<(std::ostream& out, const String& text);
// Seconds from a text of milliseconds: 0 below four characters, otherwise wcstol (base 0) of
// all but the last three characters.
long fromMillisSinceEpoch(const String& millis);
// asctime of the UTC time of SECONDS, newline kept; empty when the conversion fails.
ID toString(long seconds);
// Writes toISO8601().
std::ostream& operator<<(std::ostream& out, const Time& time);
// Consumes up to 256 bytes and yields Time::from of them: the epoch.
std::istream& operator>>(std::istream& in, Time& time);

} // namespace ovTypes

namespace std {
template <> struct hash<ovTypes::ID> {
    size_t operator()(const ovTypes::ID& id) const noexcept { return hash<string>()(id); }
};
template <> struct hash<ovTypes::String> {
    size_t operator()(const ovTypes::String& s) const noexcept { return hash<wstring>()(s); }
};
} // namespace std

#endif
