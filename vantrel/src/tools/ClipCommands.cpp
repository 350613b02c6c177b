#include "ClipOptions.h"
#include "FrameLayout.h"
#include "ToolError.h"

namespace {

constexpr const char* CLIP_TYPE = "CLIP";
constexpr int MAX_IMAGE_SIDE = 1 << 20;
constexpr int MAX_BITS_PER_PIXEL = 4096;
constexpr int MAX_CHANNELS = 1024;
constexpr unsigned MAX_FRAMES = 10'000'000;

const std::pair<std::string, VantrelClipFormat::ScanFormat> SCAN_FORMATS[] = {
    {"field1_odd", VantrelClipFormat::FIELD1_ODD},
    {"field1_even", VantrelClipFormat::FIELD1_EVEN},
    {"field2_odd", VantrelClipFormat::FIELD2_ODD},
    {"field2_even", VantrelClipFormat::FIELD2_EVEN},
    {"progressive", VantrelClipFormat::PROGRESSIVE}};

struct StatOptions {
    std::string server;
    std::string path;
};

struct CreateClipOptions {
    std::string server;
    std::string parent;
    std::string name;
    int width = 0;
    int height = 0;
    int bits = 24;
    int channels = 3;
    std::string formatTag = "rgb";
    unsigned long frameSize = 0;  // 0: what size and bits give
    unsigned frames = 0;
    ClipOptions clip;
};

// Bits of all pixels, rounded up to bytes. The limits of the options keep it within 64 bits.
unsigned long packedSize(const CreateClipOptions& options) {
    const unsigned long bits = static_cast<unsigned long>(options.width) *
                               static_cast<unsigned long>(options.height) *
                               static_cast<unsigned long>(options.bits);
    return (bits + 7) / 8;
}

VantrelClipFormat formatOf(const CreateClipOptions& options) {
    VantrelClipFormat format(options.width, options.height, options.bits, options.channels, options.clip.rate,
                             options.clip.ratio, options.clip.scanFormat(), options.formatTag.c_str(),
                             nullptr, nullptr);
    format.setFrameBufferSize(options.frameSize != 0 ? options.frameSize : packedSize(options));
    format.setColourSpace(options.clip.colourSpace.c_str());
    return format;
}

void createClip(const Program& program, const CreateClipOptions& options) {
    Session session(program, options.server);
    VantrelNodeHandle parent = session.node(options.parent);
    NewClip clip(session, parent, options.name, formatOf(options), options.frames);
    clip.keep();
    const Output& out = session.output();
    if (out.json())
        out.document({{"id", out.text(clip.id().c_str())}});
    else
        out.line(clip.id());
}

Json formatJson(const Output& out, const VantrelClipFormat& format) {
    return {{"width", format.width()},
            {"height", format.height()},
            {"bitsPerPixel", format.bitsPerPixel()},
            {"channels", format.numChannels()},
            {"frameBufferSize", format.frameBufferSize()},
            {"pixelRatio", shortest(format.pixelRatio())},
            {"frameRate", shortest(format.frameRate())},
            {"scanFormat", VantrelClipFormat::scanFormatStr(format.scanFormat())},
            {"formatTag", out.text(format.formatTag())},
            {"metaDataTag", out.text(format.metaDataTag())},
            {"metaData", out.text(format.metaData())},
            {"colourSpace", out.text(format.colourSpace())}};
}

void stat(const Program& program, const StatOptions& options) {
    const Session session(program, options.server);
    const Output& out = session.output();
    VantrelNodeHandle node = session.node(options.path);
    const std::string failed = Session::failed("read", options.path);
    VantrelStr name;
    VantrelStr type;
    bool isClip = false;
    session.require(node.getDisplayName(name), failed);
    session.require(node.getNodeTypeStr(type), failed);
    session.require(node.getIsClipNode(isClip), failed);

    int frames = 0;
    Json format;
    if (isClip) {
        VantrelClipFormat clipFormat;
        session.require(node.getNumFrames(frames), failed);
        session.require(node.getClipFormat(clipFormat), failed);
        format = formatJson(out, clipFormat);
    }
    out.record({{"id", out.text(node.getNodeId().id())},
                {"displayName", out.text(name)},
                {"type", out.text(type)},
                {"isClip", isClip},
                {"frames", frames},
                {"format", std::move(format)}});
}

void declareCreateClip(CLI::App& command, CreateClipOptions& options) {
    addServer(command, options.server);
    addPath(command, "PARENT", options.parent, "where to create it")->required();
    command.add_option("NAME", options.name, "display name of the new clip")->required();
    command.add_option("--width", options.width, "pixels in a row")
        ->required()
        ->check(CLI::Range(1, MAX_IMAGE_SIDE));
    command.add_option("--height", options.height, "rows")->required()->check(CLI::Range(1, MAX_IMAGE_SIDE));
    command.add_option("--bits", options.bits, "bits per pixel, all channels together")
        ->capture_default_str()
        ->check(CLI::Range(1, MAX_BITS_PER_PIXEL));
    command.add_option("--channels", options.channels, "channels of a pixel")
        ->capture_default_str()
        ->check(CLI::Range(1, MAX_CHANNELS));
    command.add_option("--format-tag", options.formatTag, "encoding of the frames")->capture_default_str();
    command.add_option("--frame-size", options.frameSize, "bytes of a frame; size times bits when left out");
    command.add_option("--frames", options.frames, "number of frames to allocate")
        ->capture_default_str()
        ->check(CLI::Range(0U, MAX_FRAMES));
    addClipOptions(command, options.clip);
}

}  // namespace

VantrelClipFormat::ScanFormat ClipOptions::scanFormat() const {
    for (const auto& [text, value] : SCAN_FORMATS)
        if (text == scan) return value;
    throw ToolError("unknown scan format '" + scan + "'");
}

void addClipOptions(CLI::App& command, ClipOptions& options) {
    std::vector<std::string> scans;
    for (const auto& entry : SCAN_FORMATS) scans.push_back(entry.first);
    command.add_option("--rate", options.rate, "frames per second")
        ->capture_default_str()
        ->check(CLI::Range(0.001F, 100000.0F));
    command.add_option("--ratio", options.ratio, "width of a pixel divided by its height")
        ->capture_default_str()
        ->check(CLI::Range(0.001F, 1000.0F));
    command.add_option("--scan", options.scan, "order of the fields")
        ->capture_default_str()
        ->check(CLI::IsMember(scans));
    command.add_option("--colour-space", options.colourSpace, "colour space of the frames");
}

NewClip::NewClip(Session& session, VantrelNodeHandle& parent, const std::string& name,
                 const VantrelClipFormat& format, unsigned frames)
    : session_(session), name_(name) {
    session.require(parent.createClipNode(name.c_str(), format, CLIP_TYPE, clip_),
                    Session::failed("create clip", name));
    if (frames == 0 || clip_.setNumFrames(frames)) return;
    const std::string reason = session.server().lastError();
    remove();
    session.checkInterrupt();
    throw ToolError(!reason.empty() ? reason : Session::failed("allocate the frames of clip", name));
}

NewClip::~NewClip() {
    if (!kept_) remove();
}

void NewClip::remove() {
    session_.beginUndo();
    const std::string id = this->id();
    if (!clip_.destroyNode())
        std::fprintf(stderr, "vantrel: clip '%s' (id:%s) is left behind unfinished: %s\n", name_.c_str(),
                     id.c_str(), session_.server().lastError());
}

void addClipCommands(CLI::App& app, Program& program) {
    addCommand<StatOptions>(
        app, program, "stat", "Show what a node is and, of a clip, its format",
        [](CLI::App& command, StatOptions& options) {
            addServer(command, options.server);
            addPath(command, "PATH", options.path, "the node")->required();
        },
        stat);
    addCommand<CreateClipOptions>(app, program, "create-clip", "Create a clip and print its id",
                                  declareCreateClip, createClip);
}
