#include "VantrelClipFormatCodec.h"

#include <charconv>
#include <climits>
#include <cstddef>

#include "CoMsg.h"
#include "rcAttrStream.h"
#include "rcParam.h"

namespace Vantrel {

namespace {

constexpr std::string_view EMPTY_TAG = "none";
constexpr std::string_view WHITE_SPACE = " \t\n\v\f\r";
constexpr std::size_t MAX_TAG_BYTES = 255;
constexpr std::size_t MAX_META_DATA_BYTES = 4095;
constexpr unsigned long MAX_INT_FRAME_SIZE = INT_MAX;  // a larger one needs a 64-bit attribute
constexpr int FLOAT_DIGITS = 6;

constexpr const char* INVALID_WORDS = "Invalid clip format: cannot read the %s.";
constexpr const char* INVALID_SCAN = "Invalid clip format: unknown scan format %d.";

bool isKnownScanFormat(int scan) {
    return scan >= VantrelClipFormat::FIELD1_ODD && scan <= VantrelClipFormat::PROGRESSIVE;
}

std::string_view asWord(std::string_view tag) {
    tag = tag.substr(0, tag.find_first_of(WHITE_SPACE)).substr(0, MAX_TAG_BYTES);
    return tag.empty() ? EMPTY_TAG : tag;
}

void appendFloat(float value, std::string& text) {
    char digits[32];
    const auto [end, error] =
        std::to_chars(digits, digits + sizeof digits, value, std::chars_format::general, FLOAT_DIGITS);
    if (error == std::errc()) text.append(digits, end);
}

// The ten words, each with a blank behind it.
std::string toWords(const VantrelClipFormat& format) {
    std::string text = coFormat("%d %d %d %d %zu ", format.width(), format.height(), format.bitsPerPixel(),
                                format.numChannels(), static_cast<std::size_t>(format.frameBufferSize()));
    appendFloat(format.pixelRatio(), text);
    text += ' ';
    appendFloat(format.frameRate(), text);
    text += ' ';
    text += asWord(format.formatTag());
    text += coFormat(" %d ", static_cast<int>(format.scanFormat()));
    text += asWord(format.metaDataTag());
    text += ' ';
    return text;
}

// Takes values off the front of a text, each after any white space, as scanf does. A number beyond what its
// type holds becomes the nearest that it does hold, a floating-point one 0. After the first failure every
// further read fails too and gives 0 or nothing.
class WordScanner {
  public:
    explicit WordScanner(std::string_view text) : rest_(text.substr(0, text.find('\0'))) {}

    bool read(int& value) {
        const bool negative = startNumber() && rest_[0] == '-';
        return readNumber(value, negative ? INT_MIN : INT_MAX);
    }

    bool read(unsigned long& value) {
        const bool negative = startNumber() && rest_[0] == '-';
        if (negative) rest_.remove_prefix(1);
        const bool found = readNumber(value, ULONG_MAX);
        if (negative) value = 0;
        return found;
    }

    bool read(float& value) {
        startNumber();
        return readNumber(value, 0.0F);
    }

    bool read(std::string& word) {
        skipWhiteSpace();
        const std::string_view whole = rest_.substr(0, rest_.find_first_of(WHITE_SPACE));
        rest_.remove_prefix(whole.size());
        word = whole.substr(0, MAX_TAG_BYTES);
        failed_ = failed_ || whole.empty();
        return !failed_;
    }

    // What is left behind any white space.
    std::string_view rest() {
        skipWhiteSpace();
        return failed_ ? std::string_view() : rest_;
    }

  private:
    void skipWhiteSpace() {
        const std::size_t begin = rest_.find_first_not_of(WHITE_SPACE);
        rest_.remove_prefix(begin == std::string_view::npos ? rest_.size() : begin);
    }

    // Goes to the number's sign or first digit; false at the end of the text.
    bool startNumber() {
        skipWhiteSpace();
        if (rest_.empty()) return false;
        if (rest_[0] != '+') return true;
        rest_.remove_prefix(1);
        if (!rest_.empty() && rest_[0] == '-') failed_ = true;  // "+-1"
        return !rest_.empty();
    }

    template <typename Number>
    bool readNumber(Number& value, Number outOfRange) {
        value = 0;
        if (failed_) return false;
        const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value);
        if (error == std::errc::result_out_of_range) {
            value = outOfRange;
        } else if (error != std::errc()) {
            failed_ = true;
        }
        rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
        return !failed_;
    }

    std::string_view rest_;
    bool failed_ = false;
};

// The values of both forms, before they become a format.
struct Fields {
    int width = 0;
    int height = 0;
    int bitsPerPixel = 0;
    int numChannels = 0;
    unsigned long frameBufferSize = 0;
    float pixelRatio = 0;
    float frameRate = 0;
    std::string formatTag;
    int scanFormat = 0;
    std::string metaDataTag;
    std::string metaData;

    // Null, or the name of the first word that could not be read. It and what follows are 0 or empty then.
    const char* readWords(WordScanner& words) {
        if (!words.read(width)) return "width";
        if (!words.read(height)) return "height";
        if (!words.read(bitsPerPixel)) return "bits per pixel";
        if (!words.read(numChannels)) return "number of channels";
        if (!words.read(frameBufferSize)) return "frame buffer size";
        if (!words.read(pixelRatio)) return "pixel ratio";
        if (!words.read(frameRate)) return "frame rate";
        if (!words.read(formatTag)) return "format tag";
        if (!words.read(scanFormat)) return "scan format";
        if (!words.read(metaDataTag)) return "metadata tag";
        return nullptr;
    }

    void store(VantrelClipFormat& format) const {
        format.setWidth(width);
        format.setHeight(height);
        format.setBitsPerPixel(bitsPerPixel);
        format.setNumChannels(numChannels);
        format.setFrameBufferSize(frameBufferSize);
        format.setPixelRatio(pixelRatio);
        format.setFrameRate(frameRate);
        format.setFormatTag(formatTag.c_str());
        format.setScanFormat(static_cast<VantrelClipFormat::ScanFormat>(scanFormat));
        format.setMetaDataTag(metaDataTag.c_str());
        format.setMetaData(metaData.c_str());
    }
};

// "szu" carries any size, "sz" what fits an int. A size of 0 in "szu" leaves the word to "sz".
bool readFrameBufferSize(const rcAttrStream& stream, unsigned long& size) {
    const bool found = stream.getUInt64Value("szu", size);
    if (found && size != 0) return true;
    int shortSize = 0;
    if (!stream.getIntValue("sz", shortSize)) return found;
    size = shortSize > 0 ? static_cast<unsigned long>(shortSize) : 0;
    return true;
}

// Null, or the first key that is missing.
const char* readStream(const rcAttrStream& stream, Fields& fields, std::string& colourSpace) {
    if (!stream.getIntValue("w", fields.width)) return "w";
    if (!stream.getIntValue("h", fields.height)) return "h";
    if (!stream.getIntValue("bpp", fields.bitsPerPixel)) return "bpp";
    if (!stream.getIntValue("nch", fields.numChannels)) return "nch";
    if (!readFrameBufferSize(stream, fields.frameBufferSize)) return "sz";
    if (!stream.getFloatValue("asp", fields.pixelRatio)) return "asp";
    if (!stream.getFloatValue("rate", fields.frameRate)) return "rate";
    if (!stream.getStringValue("fmt", fields.formatTag)) return "fmt";
    if (!stream.getIntValue("scan", fields.scanFormat)) return "scan";
    if (!stream.getStringValue("metag", fields.metaDataTag)) return "metag";
    if (!stream.getStringValue("meta", fields.metaData)) return "meta";
    if (!stream.getStringValue("cs", colourSpace)) return "cs";
    return nullptr;
}

}  // namespace

std::string VantrelClipFormatCodec::toRequestText(const VantrelClipFormat& format) {
    return toWords(format) + rcParamStringToEscapedString(format.metaData());
}

std::string VantrelClipFormatCodec::toReplyText(const VantrelClipFormat& format) {
    return toWords(format) + format.metaData();
}

bool VantrelClipFormatCodec::fromRequestText(std::string_view text, VantrelClipFormat& format,
                                             std::string& error) {
    WordScanner words(text);
    Fields fields;
    if (const char* missing = fields.readWords(words)) {
        error = coFormat(INVALID_WORDS, missing);
        return false;
    }
    if (!isKnownScanFormat(fields.scanFormat)) {
        error = coFormat(INVALID_SCAN, fields.scanFormat);
        return false;
    }
    fields.metaData = rcParamEscapedStringToString(words.rest());
    fields.store(format);
    return true;
}

void VantrelClipFormatCodec::fromReplyText(std::string_view text, VantrelClipFormat& format) {
    WordScanner words(text);
    Fields fields;
    fields.readWords(words);
    fields.metaData = words.rest().substr(0, MAX_META_DATA_BYTES);
    fields.store(format);
}

void VantrelClipFormatCodec::toStream(const VantrelClipFormat& format, rcAttrStream& stream,
                                      ColourSpace colourSpace) {
    stream.addIntValue("w", format.width());
    stream.addIntValue("h", format.height());
    stream.addIntValue("bpp", format.bitsPerPixel());
    stream.addIntValue("nch", format.numChannels());
    if (format.frameBufferSize() <= MAX_INT_FRAME_SIZE) {
        stream.addIntValue("sz", static_cast<int>(format.frameBufferSize()));
    } else {
        stream.addUInt64Value("szu", format.frameBufferSize());
    }
    stream.addFloatValue("asp", format.pixelRatio());
    stream.addFloatValue("rate", format.frameRate());
    stream.addStringValue("fmt", format.formatTag());
    stream.addIntValue("scan", format.scanFormat());
    stream.addStringValue("metag", format.metaDataTag());
    stream.addStringValue("meta", format.metaData());
    if (colourSpace == ColourSpace::Included) stream.addStringValue("cs", format.colourSpace());
}

bool VantrelClipFormatCodec::fromStream(const rcAttrStream& stream, const char* command,
                                        VantrelClipFormat& format, std::string& error) {
    Fields fields;
    std::string colourSpace;
    if (const char* missing = readStream(stream, fields, colourSpace)) {
        error = coFormat("Missing %s parameter: %s", command, missing);
        return false;
    }
    if (!isKnownScanFormat(fields.scanFormat)) {
        error = coFormat("%s: Invalid scan format", command);
        return false;
    }
    fields.store(format);
    format.setColourSpace(colourSpace.c_str());
    return true;
}

}  // namespace Vantrel
