#include "TarnCore/DateText.h"

#include <algorithm>
#include <cstdio>

namespace tarn::dates {
namespace {

using namespace std::chrono;

/// The digits that stand in a form such as "dddd-dd"; none when the text does not fit it.
class Fields {
public:
    Fields(std::string_view text, std::string_view form) : text_(text) {
        fits_ =
            text.size() == form.size() && std::ranges::equal(text, form, [](char character, char expected) {
                return expected == 'd' ? character >= '0' && character <= '9' : character == expected;
            });
    }
    bool fit() const { return fits_; }
    int number(std::size_t at, std::size_t digits) const {
        int value = 0;
        for (const char digit : text_.substr(at, digits))
            value = 10 * value + (digit - '0');
        return value;
    }

private:
    std::string_view text_;
    bool fits_ = false;
};

std::optional<seconds> parseOffset(std::string_view text) {
    if (text == "Z")
        return seconds(0);
    if (text.empty() || (text.front() != '+' && text.front() != '-'))
        return std::nullopt;
    const Fields fields(text.substr(1), "dd:dd");
    if (!fields.fit() || fields.number(0, 2) > 23 || fields.number(3, 2) > 59)
        return std::nullopt;
    const seconds offset = hours(fields.number(0, 2)) + minutes(fields.number(3, 2));
    return text.front() == '-' ? -offset : offset;
}

} // namespace

std::string text(Date date) {
    const auto time = floor<seconds>(date);
    const auto day = floor<days>(time);
    const year_month_day calendar(day);
    const hh_mm_ss clock(time - day);
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(calendar.year()),
                  static_cast<unsigned>(calendar.month()), static_cast<unsigned>(calendar.day()),
                  static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()));
    return text;
}

std::optional<Date> parse(std::string_view text) {
    constexpr std::string_view form = "dddd-dd-ddTdd:dd:dd";
    const Fields fields(text.substr(0, form.size()), form);
    const auto offset = fields.fit() ? parseOffset(text.substr(form.size())) : std::nullopt;
    if (!offset)
        return std::nullopt;
    const year_month_day date{year(fields.number(0, 4)), month(static_cast<unsigned>(fields.number(5, 2))),
                              day(static_cast<unsigned>(fields.number(8, 2)))};
    if (!date.ok() || fields.number(11, 2) > 23 || fields.number(14, 2) > 59 || fields.number(17, 2) > 59)
        return std::nullopt;
    const sys_seconds time = sys_days(date) + hours(fields.number(11, 2)) + minutes(fields.number(14, 2)) +
                             seconds(fields.number(17, 2)) - *offset;
    // Of the moment itself, so that what was read can be written and read again.
    const auto inYear = year_month_day(floor<days>(time)).year();
    if (inYear < year(1678) || inYear > year(2261))
        return std::nullopt;
    return time;
}

} // namespace tarn::dates
