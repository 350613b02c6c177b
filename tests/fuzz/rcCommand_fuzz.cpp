// Any bytes may arrive as command and result lines, in fragments of any size; any text may have to travel in
// one.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "rcCommand.h"
#include "rcParam.h"

using namespace Vantrel;

namespace {

void require(bool holds) {
    if (!holds) __builtin_trap();
}

/// Takes the first line byte by byte and in fragments: the same bytes must be taken and the same said of
/// them.
template <typename Line>
void takeLine(Line& byBytes, Line& byFragments, std::string_view bytes, std::size_t fragment) {
    std::size_t taken = 0;
    bool complete = false;
    while (taken < bytes.size() && !complete) complete = byBytes.appendChar(bytes[taken++]);

    std::size_t at = 0;
    bool completeInFragments = false;
    while (at < bytes.size() && !completeInFragments) {
        const std::size_t size = std::min(fragment, bytes.size() - at);
        std::size_t used = 0;
        completeInFragments = byFragments.append(bytes.data() + at, size, used);
        require(used <= size && (completeInFragments || used == size));
        at += used;
    }
    require(complete == completeInFragments && taken == at);
    require(byBytes.receivedBytes() == byFragments.receivedBytes());
    require(byBytes.value().text() == byFragments.value().text());
}

void travel(const std::string& text) {
    std::string line;
    rcCommand::format(rcCommand::Type::Sync, -5, "Method", text, line);
    require(line.find('\n') == line.size() - 1);
    rcCommand command;
    std::size_t used = 0;
    require(command.append(line.data(), line.size(), used) && used == line.size());
    require(command.isSync() && command.objectId() == "-5" && command.method() == "Method");
    require(command.value().text() == text);
}

void split(const std::string& text) {
    require(rcParamEscapedStringToString(rcParamStringToEscapedString(std::string_view(text))) == text);
    rcParamEscapedStringToString(text);

    rcParam::Array parameters(rcParam::InfoList(5, rcParam::Info{&rcParamString::TYPE}), text);
    std::size_t kept = 0;
    for (std::size_t i = 0; i < parameters.size(); ++i) kept += parameters[i].stringValue().size();
    require(kept <= text.size());
    const std::string quoted = rcParamStringToEscapedString(std::string_view(text));
    rcParam::Array three(rcParam::InfoList(3, rcParam::Info{&rcParamString::TYPE}),
                         "first " + quoted + " last");
    require(three[1].stringValue() == quoted && three[2].stringValue() == "last");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::size_t fragment = data[0] % 64U + 1U;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);

    rcCommand command, commandInFragments;
    takeLine(command, commandInFragments, text, fragment);
    require(command.type() == commandInFragments.type() &&
            command.objectId() == commandInFragments.objectId() &&
            command.method() == commandInFragments.method());
    rcResult result, resultInFragments;
    takeLine(result, resultInFragments, text, fragment);
    require(result.codeText() == resultInFragments.codeText());

    travel(text);
    split(text);
    return 0;
}
