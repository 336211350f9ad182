// Signs configuration files: writes the correct checksum into a file's own bytes.
//
// JSON: the root `Checksum` member's value is replaced (or, when the root has none, a member
// `"Checksum": "…"` is inserted as the root's first member); every other byte stays as it was.
// Line-oriented form (text that is not JSON, signed only when asked for, or when the input's name
// ends in ".cfg" or ".ccf"): the protected text gets a fresh "crc=" line, or is written in binary
// records when the output's name ends in ".ccf". Stateless; thread-safe.
#pragma once

#include <string>

namespace QuillmarBasebandSDK {

// Signs `bytes`, the content of the file `inputName`, for writing to `outputName`; text that is
// not JSON is signed as the line-oriented form when `lineForm` is set or the input's name ends in
// ".cfg" or ".ccf". Returns false, with a reason in `error` (for text that is not JSON: where),
// when the file cannot be signed.
bool SignConfiguration(const std::string& bytes, const std::string& inputName,
                       const std::string& outputName, bool lineForm, std::string& signedBytes,
                       std::string& error);

}  // namespace QuillmarBasebandSDK
