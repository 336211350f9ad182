// A JSON text read into our ordered tree (JsonValue), through Boost.JSON's SAX parser.
//
// Besides the tree, it writes the canonical text the checksum covers, and notes where the root
// object's first `Checksum` string lies in the text, so that signing can replace those bytes and
// leave every other byte as it was. Stateless functions; safe to call from any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "config/JsonValue.h"

namespace QuillmarBasebandSDK {

struct JsonDocument {
  static constexpr std::size_t kNoOffset = static_cast<std::size_t>(-1);

  JsonValue root;
  // Offset of the first byte of the root value (after leading white space).
  std::size_t rootOffset = kNoOffset;
  // The root object's first `Checksum` member, when its value is a string written without
  // escapes: offset and length of the characters between its quotes. kNoOffset otherwise.
  std::size_t checksumOffset = kNoOffset;
  std::size_t checksumLength = 0;
  // True when the root object has a member named `Checksum` at all.
  bool hasRootChecksum = false;
  // The text the document's checksum covers (rules in DocumentChecksum.h).
  std::string canonicalText;
};

// Where and why a text is not JSON.
struct JsonSyntaxError {
  std::size_t line = 0;    // from 1
  std::size_t column = 0;  // from 1, in bytes
  std::string message;

  // "line 3, column 14: syntax error"
  std::string Text() const;
};

// Parses `text` as one JSON document (no comments, no trailing commas). Text that is not UTF-8
// (a file written in a local 8-bit code page) is kept byte for byte. Returns false, with
// `document` unspecified and `error` (when given) saying where, when `text` is not JSON.
bool ParseJsonDocument(std::string_view text, JsonDocument& document,
                       JsonSyntaxError* error = nullptr);

}  // namespace QuillmarBasebandSDK
