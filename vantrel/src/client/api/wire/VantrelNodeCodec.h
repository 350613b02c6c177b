#pragma once

#include <vantrel/VantrelTypes.h>

#include <string>
#include <string_view>
#include <vector>

#include "CoTokenizer.h"
#include "VantrelNodeInterface.h"

using VantrelTokenizer = Vantrel::CoTokenizer;

/// The texts of the node commands: pieces of arguments, and replies into values. Pure text in, values out.
/// Thread-safe.
class VantrelNodeCodec {
  public:
    /// One word of a plain argument: in quotes and escaped when it holds a blank, otherwise as it is.
    static std::string plainWord(std::string_view text);

    /// Reply of "GetChildrenEx": a stream whose values are streams, each with "Id" and "Displ". Names come in
    /// UTF-8 and are converted to the process's locale. Replaces the content of `children`. False, with
    /// `error` set, when a child lacks one of the two; the children before it are then in the list.
    [[nodiscard]] static bool parseChildrenEx(std::string reply, VantrelNodeInterface::NodeInfoList& children,
                                              std::string& error);
    /// Reply of "GetChildren": id and name in turn, cut at every comma, names as they are. A last id without
    /// a name is dropped. Replaces the content of `children`. False, with `error` set, when the reply is too
    /// long.
    [[nodiscard]] static bool parseChildren(std::string reply, VantrelNodeInterface::NodeInfoList& children,
                                            std::string& error);

    /// Texts separated by commas, without the empty ones. Replaces the content of the list.
    static void parseCommaList(std::string_view reply, std::vector<std::string>& texts);
    static void parseCommaList(std::string_view reply, std::vector<VantrelFrameId>& frames);
    static std::string joinWithCommas(const std::vector<std::string>& texts);

    /// Texts each preceded by its length. Replaces the content of the list. False for a malformed text; the
    /// elements before the fault are then in the list.
    [[nodiscard]] static bool parseList(std::string_view reply, std::vector<std::string>& texts);
    [[nodiscard]] static bool parseList(std::string_view reply, std::vector<VantrelFrameId>& frames);

    /// Two decimal numbers with a blank between. The second may be absent and is then 0. False, without any
    /// change, when the text begins with no number or one of them does not fit.
    [[nodiscard]] static bool parseNumberPair(const std::string& reply, int& first, int& second);
    /// A decimal number; 0 when the text begins with none, the nearest one when it does not fit.
    static int parseNumber(const std::string& reply);
};
