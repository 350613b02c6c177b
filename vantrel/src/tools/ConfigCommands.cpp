#include <vantrel/VantrelClientAPI.h>

#include <cstdlib>

#include "CommandOptions.h"
#include "LocalFile.h"
#include "Output.h"
#include "ToolError.h"

namespace {

constexpr const char* FILE_VARIABLE = "QD_NETWORK_CFG_FILE";
constexpr const char* DEFAULT_FILE = "/opt/Quorvane/cfg/network.cfg";
constexpr std::size_t MAX_CONFIG_BYTES = std::size_t{16} << 20;

struct NoOptions {};

std::string configFile() {
    const char* file = std::getenv(FILE_VARIABLE);
    return file != nullptr && *file != '\0' ? file : DEFAULT_FILE;
}

void create(const Program& program, const NoOptions&) {
    const Output out(program.json);
    const std::string file = configFile();
    VantrelStr error;
    if (!VantrelCreateNetworkConfig(&error))
        throw ToolError(error.isEmpty() ? "cannot create '" + file + "'" : error.c_str());
    if (out.json())
        out.document({{"file", out.text(file.c_str())}});
    else
        out.line(file);
}

void show(const Program& program, const NoOptions&) {
    const Output out(program.json);
    const std::string file = configFile();
    const std::string content = readLocalFile(file, MAX_CONFIG_BYTES);
    if (out.json())
        out.document({{"file", out.text(file.c_str())}, {"content", out.text(content.c_str())}});
    else
        out.bytes(content.data(), content.size());
}

}  // namespace

void addConfigCommands(CLI::App& app, Program& program) {
    CLI::App* config = app.add_subcommand("config", "This workstation's network.cfg");
    config->require_subcommand(1);
    const auto noArguments = [](CLI::App&, NoOptions&) {};
    addCommand<NoOptions>(*config, program, "create", "Create it when it is missing and print its path",
                          noArguments, create);
    addCommand<NoOptions>(*config, program, "show", "Print it", noArguments, show);
}
