#include "config/ConfigurationSigner.h"

#include "config/DocumentChecksum.h"
#include "config/JsonDocument.h"
#include "config/LineForm.h"

namespace QuillmarBasebandSDK {
namespace {

constexpr char kInsertedMemberStart[] = "\n  \"Checksum\": \"";

bool SignJson(const std::string& bytes, const JsonDocument& document, std::string& signedBytes,
              std::string& error) {
  if (document.root.type != JsonType::Object) {
    error = "the JSON root is not an object";
    return false;
  }
  const std::string checksum = DocumentChecksum(document);
  signedBytes = bytes;
  if (document.checksumOffset != JsonDocument::kNoOffset) {
    signedBytes.replace(document.checksumOffset, document.checksumLength, checksum);
    return true;
  }
  if (document.hasRootChecksum) {
    error = "the root Checksum member is not a plain string; correct or remove it first";
    return false;
  }
  const std::string separator = document.root.members.empty() ? "" : ",";
  signedBytes.insert(document.rootOffset + 1, kInsertedMemberStart + checksum + "\"" + separator);
  return true;
}

}  // namespace

bool SignConfiguration(const std::string& bytes, const std::string& inputName,
                       const std::string& outputName, bool lineForm, std::string& signedBytes,
                       std::string& error) {
  JsonDocument document;
  JsonSyntaxError syntax;
  if (ParseJsonDocument(bytes, document, &syntax)) {
    return SignJson(bytes, document, signedBytes, error);
  }
  if (!lineForm && !IsLineFormName(inputName)) {
    error = "not valid JSON: " + syntax.Text();
    return false;
  }
  const std::string text = DecodeLineForm(bytes, IsCcfName(inputName)).text;
  signedBytes = IsCcfName(outputName) ? EncodeCcf(text) : EncodeTextForm(text);
  return true;
}

}  // namespace QuillmarBasebandSDK
