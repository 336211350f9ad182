#include "config/JsonDocument.h"

#include <algorithm>
#include <boost/json/basic_parser_impl.hpp>
#include <charconv>
#include <iterator>
#include <utility>
#include <vector>

namespace QuillmarBasebandSDK {
namespace {

constexpr char kChecksumKey[] = "Checksum";
constexpr char kSharedDatabaseKey[] = "SharedDatabase";
// About the fewest bytes a configuration spends on a value (`"n":1,` and white space).
constexpr std::size_t kBytesPerValue = 8;
// As a default C++ stream writes a real: "%g", six significant digits, in the C locale.
constexpr int kRealDigits = 6;
// Configuration files nest a handful of levels; the parser refuses deeper texts.
constexpr std::size_t kMaxDepth = 64;

using boost::json::string_view;
using ErrorCode = boost::system::error_code;

// Builds the tree from the parser's events. The finished values of the containers under
// construction wait on one stack, each with its name; a container that closes takes its values
// off the stack at once, so that every member list is allocated once, at its final size.
class TreeBuilder {
 public:
  static constexpr std::size_t max_object_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_array_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_key_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_string_size = static_cast<std::size_t>(-1);

  TreeBuilder(std::string_view text, JsonDocument& document) : text_(text), document_(document) {
    // Room for every value of a typical configuration at once, so that the stack never moves.
    values_.reserve(text.size() / kBytesPerValue + 1);
    document_.canonicalText.reserve(text.size());
  }

  bool on_document_begin(ErrorCode&) { return true; }
  bool on_document_end(ErrorCode&) { return true; }
  bool on_array_begin(ErrorCode&) {
    BeginContainer();
    return Open(JsonType::Array);
  }
  bool on_array_end(std::size_t, ErrorCode&) { return Close(); }
  bool on_object_begin(ErrorCode&) {
    BeginContainer();
    return Open(JsonType::Object);
  }
  bool on_object_end(std::size_t, ErrorCode&) { return Close(); }

  bool on_string_part(string_view part, std::size_t, ErrorCode&) {
    pendingString_.append(part.data(), part.size());
    stringInParts_ = true;
    return true;
  }
  bool on_string(string_view last, std::size_t, ErrorCode&) {
    const bool wholeInText = !stringInParts_ && InText(last);
    NoteRootChecksum(wholeInText ? last : string_view{});
    JsonValue value;
    value.type = JsonType::String;
    value.string = std::move(pendingString_);
    value.string.append(last.data(), last.size());
    pendingString_.clear();
    stringInParts_ = false;
    if (BeginCanonical())
      AppendQuoted(value.string, IsMember() && pendingKey_ == kSharedDatabaseKey);
    return Add(std::move(value));
  }
  bool on_key_part(string_view part, std::size_t, ErrorCode&) {
    pendingKey_.append(part.data(), part.size());
    return true;
  }
  bool on_key(string_view last, std::size_t, ErrorCode&) {
    pendingKey_.append(last.data(), last.size());
    return true;
  }
  bool on_number_part(string_view, ErrorCode&) { return true; }
  bool on_int64(std::int64_t number, string_view, ErrorCode&) {
    if (BeginCanonical()) AppendNumber(number);
    JsonValue value;
    value.type = JsonType::Integer;
    value.integer = number;
    return Add(std::move(value));
  }
  bool on_uint64(std::uint64_t number, string_view, ErrorCode&) {
    if (BeginCanonical()) AppendNumber(number);
    JsonValue value;
    value.type = JsonType::Integer;
    value.wideUnsigned = number;
    value.isWideUnsigned = true;
    return Add(std::move(value));
  }
  bool on_double(double number, string_view, ErrorCode&) {
    if (BeginCanonical()) AppendNumber(number, std::chars_format::general, kRealDigits);
    JsonValue value;
    value.type = JsonType::Real;
    value.real = number;
    return Add(std::move(value));
  }
  bool on_bool(bool flag, ErrorCode&) {
    if (BeginCanonical()) document_.canonicalText += flag ? "true" : "false";
    JsonValue value;
    value.type = JsonType::Boolean;
    value.boolean = flag;
    return Add(std::move(value));
  }
  bool on_null(ErrorCode&) {
    NoteRootChecksum({});
    return Add(JsonValue{});
  }
  bool on_comment_part(string_view, ErrorCode&) { return true; }
  bool on_comment(string_view, ErrorCode&) { return true; }

 private:
  // A container under construction: its name in its parent, its type, and where its values
  // begin on the stack.
  struct Open_ {
    std::string name;
    JsonType type;
    std::size_t first;
  };

  bool InText(string_view part) const {
    return part.data() >= text_.data() && part.data() + part.size() <= text_.data() + text_.size();
  }

  bool AtRootMember() const { return open_.size() == 1 && open_.front().type == JsonType::Object; }

  bool IsMember() const { return !open_.empty() && open_.back().type == JsonType::Object; }

  // Called as a value other than null begins: writes a member's name to the canonical text and
  // says whether the value goes there too. A `Checksum` member adds nothing, nor does anything in
  // a container that is such a member's value.
  bool BeginCanonical() {
    if (skipDepth_ != 0) return false;
    if (!IsMember()) return true;
    if (pendingKey_ == kChecksumKey) return false;
    document_.canonicalText += pendingKey_;
    return true;
  }

  // A container that adds nothing has its contents left out as well, up to its end.
  void BeginContainer() {
    if (!BeginCanonical() && skipDepth_ == 0) skipDepth_ = open_.size() + 1;
  }

  void AppendQuoted(const std::string& value, bool doubleBackslashes) {
    std::string& text = document_.canonicalText;
    text += '"';
    if (!doubleBackslashes) {
      text += value;
    } else {
      for (const char c : value) {
        text += c;
        if (c == '\\') text += '\\';
      }
    }
    text += '"';
  }

  template <typename Number, typename... Format>
  void AppendNumber(Number number, Format... format) {
    char digits[32];
    const auto written = std::to_chars(digits, digits + sizeof digits, number, format...);
    document_.canonicalText.append(digits, written.ptr);
  }

  // Called for string and null values before they are added: notes where the root's first
  // `Checksum` member's text lies (other kinds of value are noted by Add).
  void NoteRootChecksum(string_view wholeValue) {
    if (!AtRootMember() || pendingKey_ != kChecksumKey || document_.hasRootChecksum) return;
    document_.hasRootChecksum = true;
    if (wholeValue.data() == nullptr) return;
    document_.checksumOffset = static_cast<std::size_t>(wholeValue.data() - text_.data());
    document_.checksumLength = wholeValue.size();
  }

  bool Open(JsonType type) {
    open_.push_back(Open_{std::move(pendingKey_), type, values_.size()});
    pendingKey_.clear();
    return true;
  }

  bool Close() {
    if (skipDepth_ == open_.size()) skipDepth_ = 0;
    Open_ closed = std::move(open_.back());
    open_.pop_back();
    JsonValue container;
    container.type = closed.type;
    const auto first = values_.begin() + static_cast<std::ptrdiff_t>(closed.first);
    if (closed.type == JsonType::Object) {
      container.members.assign(std::make_move_iterator(first),
                               std::make_move_iterator(values_.end()));
    } else {
      container.elements.reserve(static_cast<std::size_t>(values_.end() - first));
      for (auto value = first; value != values_.end(); ++value) {
        container.elements.push_back(std::move(value->value));
      }
    }
    values_.erase(first, values_.end());
    pendingKey_ = std::move(closed.name);
    return Add(std::move(container));
  }

  // Places a finished value in the open container, or makes it the root.
  bool Add(JsonValue value) {
    if (open_.empty()) {
      document_.root = std::move(value);
      return true;
    }
    if (open_.back().type == JsonType::Object) {
      if (AtRootMember() && pendingKey_ == kChecksumKey) document_.hasRootChecksum = true;
      values_.push_back(JsonMember{std::move(pendingKey_), std::move(value)});
      pendingKey_.clear();
    } else {
      values_.push_back(JsonMember{{}, std::move(value)});
    }
    return true;
  }

  std::string_view text_;
  JsonDocument& document_;
  std::vector<Open_> open_;
  std::vector<JsonMember> values_;  // of the open containers, innermost last
  std::size_t skipDepth_ = 0;  // the depth of the container being left out of the canonical text
  std::string pendingKey_;
  std::string pendingString_;
  bool stringInParts_ = false;
};

std::size_t FirstNonSpace(std::string_view text) {
  const std::size_t offset = text.find_first_not_of(" \t\r\n");
  return offset == std::string_view::npos ? JsonDocument::kNoOffset : offset;
}

}  // namespace

std::string JsonSyntaxError::Text() const {
  return "line " + std::to_string(line) + ", column " + std::to_string(column) + ": " + message;
}

bool ParseJsonDocument(std::string_view text, JsonDocument& document, JsonSyntaxError* error) {
  document = JsonDocument{};
  boost::json::parse_options options;
  options.max_depth = kMaxDepth;
  // Configurations written in a local 8-bit code page are read byte for byte, as signed.
  options.allow_invalid_utf8 = true;
  boost::json::basic_parser<TreeBuilder> parser(options, text, document);
  ErrorCode failure;
  const std::size_t used = parser.write_some(false, text.data(), text.size(), failure);
  if (!failure && used == text.size() && parser.done()) {
    document.rootOffset = FirstNonSpace(text);
    return true;
  }
  if (error != nullptr) {
    const std::string_view read = text.substr(0, used);
    const std::size_t lineStart = read.rfind('\n');
    error->line = 1 + static_cast<std::size_t>(std::count(read.begin(), read.end(), '\n'));
    error->column = used - (lineStart == std::string_view::npos ? 0 : lineStart + 1) + 1;
    error->message = failure              ? failure.message()
                     : used < text.size() ? "text after the end of the document"
                                          : "the document ends too early";
  }
  return false;
}

}  // namespace QuillmarBasebandSDK
