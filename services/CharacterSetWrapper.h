// CharacterSetWrapper: converts between the bytes of a file and the UTF-8
// text the engine works in, for one named character set, and can find the set
// of an input by itself.
//
// Names are compared without regard to case. "utf-8", "unicode" and
// "utf-16" (UTF-16 little-endian), "utf-16be", "utf-32" (little-endian),
// "utf-32be", "windows-1252", "iso-8859-1" and every other name glibc's iconv
// knows convert. "autodetect" finds the set on the first read (byte order
// mark, then the shape of the bytes, then ICU's detector) and from then on
// Charset() holds the detected name; writing while the set is undetermined
// raises 9530. An empty name reads like "autodetect" and writes in the
// session's default character set, or UTF-8 when there is none.
//
// Preambles (byte order marks) exist for the UTF sets only. ConvertToText
// drops a leading preamble of the set; writing one is the caller's choice
// (Preamble()).
//
// UTF-8, UTF-16 and UTF-32 convert in this class, the single-byte sets through
// tables built once per wrapper; other sets go through iconv. A wrapper owns its conversion state
// (so a stateful set can be decoded in chunks through AppendText) and belongs
// to one thread.
//
// Errors: 9530 write with an undetermined set; 9531 the set could not be
// detected; 9532 text that cannot be written in the set, or a set nobody
// knows; 9533 bytes that are not valid in the set.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tessel {

using Bytes = std::vector<uint8_t>;

class CharacterSetWrapper {
 public:
  static constexpr int32_t kCannotEncodeUndetermined = 9530;
  static constexpr int32_t kCannotDetect = 9531;
  static constexpr int32_t kConversionComponent = 9532;
  static constexpr int32_t kConversionFailed = 9533;

  CharacterSetWrapper();
  // Init(charset).
  explicit CharacterSetWrapper(const std::string& charset);
  ~CharacterSetWrapper();
  CharacterSetWrapper(const CharacterSetWrapper&) = delete;
  CharacterSetWrapper& operator=(const CharacterSetWrapper&) = delete;

  // Sets the name and prepares its conversion; 9532 when no converter knows
  // the name.
  void Init(const std::string& charset);

  // The name as given, or the detected one after an autodetected read.
  const std::string& Charset() const { return charset_; }
  // Stores the name; the same as Init.
  void SetCharset(const std::string& charset) { Init(charset); }
  // True while the set is still to be detected ("autodetect" or empty name).
  bool AutoDetect() const { return autoDetect_; }
  // The name handed to the converter: Charset(), with "utf-16" as "unicode".
  const std::string& ConversionName() const { return conversionName_; }

  // The byte order mark of the set; empty for sets without one and while the
  // set is undetermined.
  Bytes Preamble() const;
  // True when `bytes` starts with a non-empty preamble of the set.
  bool TextHasPreamble(std::span<const uint8_t> bytes) const;

  // Text to bytes. Empty text gives no bytes and no check.
  Bytes ConvertToData(std::string_view text);
  // Bytes to text. A preamble at the start is dropped; one byte or none gives
  // an empty text. With "autodetect" the set is detected first (9531 when it
  // cannot be).
  std::string ConvertToText(std::span<const uint8_t> bytes);
  // The same for bytes held in a string, which becomes the text when the set
  // is UTF-8 (no copy of a large file's contents).
  std::string ConvertToText(std::string&& bytes);

  // --- Streaming, for file streams ----------------------------------------------------

  // Encodes `text` and appends it to `out`. On error `out` is left as it was.
  void AppendData(std::string_view text, std::string& out);
  // True when `text` encodes as its own bytes (the set is UTF-8), so that a
  // caller may write it as it stands; raises as AppendData would when the
  // text is not valid UTF-8. False for any other set, with no check.
  bool EncodesAsItself(std::string_view text);
  // Decodes `bytes` and appends the text to `out`; returns how many bytes were
  // used. An incomplete character at the end is left unused unless `final`,
  // where it raises 9533. No preamble handling: the caller skips it. The set
  // must be determined (ResolveAutoDetect).
  size_t AppendText(std::span<const uint8_t> bytes, bool final, std::string& out);
  // For an autodetecting wrapper, detects the set from `sample` (`complete`
  // when the sample is the whole input) and takes it; 9531 when undecided.
  // Does nothing for a determined set.
  void ResolveAutoDetect(std::span<const uint8_t> sample, bool complete);
  // True when CR, LF and form feed are single bytes of their own in this set
  // and no other character contains those bytes, so line breaks can be found
  // in the undecoded bytes.
  bool LineBreaksAreBytes();
  // True when decoded text is the input bytes unchanged (UTF-8).
  bool IsUtf8();

  // The set of `bytes` as a name this class converts ("utf-8", "utf-16",
  // "utf-16be", "utf-32", "utf-32be", "windows-1252", "shift_jis", ...), or
  // empty when it cannot be decided. `complete` says the sample is the whole
  // input, so an incomplete character at its end counts against a set.
  static std::string DetectCharset(std::span<const uint8_t> bytes, bool complete = true);

 private:
  struct Codec;

  Codec& GetCodec();
  // The name text is written in while the set is undetermined (empty name).
  std::string WriteName() const;

  std::string charset_;
  std::string conversionName_;
  bool autoDetect_ = false;
  std::unique_ptr<Codec> codec_;
};

}  // namespace tessel
