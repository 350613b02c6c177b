#pragma once

#include <string>
#include <string_view>

#include <vantrel/VantrelFormats.h>

namespace Vantrel {

class rcAttrStream;

/// The text forms of a clip format, for both sides of the protocol. Pure text in, values out; no locale has
/// any influence. Thread-safe.
///
/// The plain form is ten words, each followed by a blank (width, height, bits per pixel, channels, frame
/// buffer size, pixel ratio, frame rate, format tag, number of the scan format, metadata tag), then the
/// metadata. It has no place for the colour space. A tag that could not stand as a word is brought to one: an
/// empty tag is written as "none", a longer one is cut at its first white space or after 255 bytes.
class VantrelClipFormatCodec {
  public:
    /// Plain form as clients send it: the metadata is in quotes and escaped.
    static std::string toRequestText(const VantrelClipFormat& format);
    /// Plain form as servers send it: the metadata is as it is.
    static std::string toReplyText(const VantrelClipFormat& format);

    /// Reads what a client sent. False when one of the ten words is missing or is no number where there has
    /// to be one: `error` says which, and `format` is as it was.
    [[nodiscard]] static bool fromRequestText(std::string_view text, VantrelClipFormat& format,
                                              std::string& error);
    /// Reads what a server sent. Reading ends at the first word that cannot be read; the fields from there on
    /// become 0 or empty. Metadata is cut after 4095 bytes. The colour space stays as it is.
    static void fromReplyText(std::string_view text, VantrelClipFormat& format);

    enum class ColourSpace { Included, LeftOut };

    /// Adds the twelve keys to a stream, in the order of the wire, or all but the last, the colour space.
    static void toStream(const VantrelClipFormat& format, rcAttrStream& stream,
                         ColourSpace colourSpace = ColourSpace::Included);
    /// Reads them. False when one is missing or the scan format is unknown: `error` names `command` and the
    /// key, and `format` is as it was.
    [[nodiscard]] static bool fromStream(const rcAttrStream& stream, const char* command,
                                         VantrelClipFormat& format, std::string& error);
};

}  // namespace Vantrel
