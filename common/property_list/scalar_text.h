// How XML property lists spell data, dates and numbers.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/values.h"

namespace common::property_list {

// Base64 with white space anywhere; absent for other characters and for wrong padding.
std::optional<platform::Data> dataFromBase64(std::string_view text);
void appendBase64(std::string& out, const platform::Data& data);

// "2001-02-03T04:05:06Z", in the proleptic Gregorian calendar; fractions of a second are accepted.
std::optional<platform::Date> dateFromText(std::string_view text);
// Rounded down to the second. Absent outside the years 0 to 9999.
std::optional<std::string> textOfDate(platform::Date date);

// Decimal or, after "0x", hexadecimal, with an optional sign: -2^63 to 2^64 - 1.
std::optional<platform::Value> integerFromText(std::string_view text);
// Decimal, "nan", "inf" or "infinity", with an optional sign.
std::optional<double> realFromText(std::string_view text);
std::string textOfReal(double real);

std::string_view trimmed(std::string_view text);

}  // namespace common::property_list
