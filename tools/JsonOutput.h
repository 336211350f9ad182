// The one JSON writer of the tool: every --json output goes through it, so that all of them are
// valid JSON of one style. Numbers are plain decimals ("0.0", "0.93", "101"; a value that is not
// finite is null); text is UTF-8, with bytes that are not UTF-8 written as the Latin-1 characters
// they would be; keys keep their order.
#pragma once

#include <boost/json/value.hpp>
#include <ostream>
#include <string>
#include <string_view>

namespace Quillmar::Tools {

// `value` as one line of JSON.
std::string JsonText(const boost::json::value& value);

// Writes `value` as one line of JSON and a line end, and flushes.
void PrintJson(std::ostream& stream, const boost::json::value& value);

// True when `text` is well-formed UTF-8.
bool IsUtf8(std::string_view text);

}  // namespace Quillmar::Tools
