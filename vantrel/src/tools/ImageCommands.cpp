#include <cstdio>
#include <optional>

#include "ClipOptions.h"
#include "FrameBuffer.h"
#include "ImageLoader.h"
#include "LocalFile.h"
#include "Progress.h"
#include "ToolError.h"

namespace {

constexpr const char* RAW = "raw";
const ImageFileType IMAGE_TYPES[] = {ImageFileType::Png, ImageFileType::Exr, ImageFileType::Dpx,
                                     ImageFileType::Tif};

struct ImportOptions {
    std::string server;
    std::string parent;
    std::string name;
    std::vector<std::string> files;
    ClipOptions clip;
};

struct ExportOptions {
    std::string server;
    std::string path;
    std::string folder;
    std::string as;
};

std::string describe(const FrameLayout& layout) {
    return std::to_string(layout.width) + "x" + std::to_string(layout.height) + ", " +
           std::to_string(layout.channels) + " channels, " + sampleTypeName(layout.type);
}

// All files are looked at before anything is created, so that a wrong one costs nothing.
ImageDescription describeAll(const Session& session, const std::vector<std::string>& files) {
    const ImageDescription first = imageFunctions().describe(files.front());
    for (const std::string& file : files) {
        session.checkInterrupt();
        const FrameLayout layout = imageFunctions().describe(file).layout;
        if (describe(layout) != describe(first.layout))
            throw ToolError("cannot import '" + file + "': it is " + describe(layout) + ", but '" +
                            files.front() + "' is " + describe(first.layout));
    }
    return first;
}

void import(const Program& program, const ImportOptions& options) {
    Session session(program, options.server);
    const Output& out = session.output();
    const ImageDescription image = describeAll(session, options.files);
    const std::string& colourSpace =
        options.clip.colourSpace.empty() ? image.colourSpace : options.clip.colourSpace;
    const VantrelClipFormat format = clipFormatOf(image.layout, options.clip.rate, options.clip.ratio,
                                                  options.clip.scanFormat(), colourSpace);
    VantrelNodeHandle parent = session.node(options.parent);
    const FrameBuffer buffer(format.frameBufferSize());
    const std::size_t count = options.files.size();
    NewClip clip(session, parent, options.name, format, static_cast<unsigned>(count));
    {
        Progress progress("importing '" + options.name + "'", count, "frames");
        for (std::size_t i = 0; i < count; ++i) {
            session.checkInterrupt();
            imageFunctions().read(options.files[i], image.layout, buffer.data());
            session.require(clip.node().writeFrame(static_cast<int>(i), buffer.data(), buffer.size()),
                            "cannot write frame " + std::to_string(i) + " of '" + options.name + "'");
            progress.advance();
        }
    }
    clip.keep();
    if (out.json())
        out.document({{"id", out.text(clip.id().c_str())}, {"frames", count}});
    else
        out.line(clip.id());
}

// Writes the frames of one clip as files of one type; without a type, as they are.
class Exporter {
  public:
    Exporter(const VantrelClipFormat& format, const std::string& as) : format_(format) {
        for (const ImageFileType type : IMAGE_TYPES)
            if (as == imageFileTypeName(type)) type_ = type;
        if (!type_) return;
        try {
            layout_ = frameLayoutOf(format);
        } catch (const ToolError& error) {
            throw ToolError(std::string(error.what()) + "; --as raw exports their bytes as they are");
        }
        if (!imageFileTypeHolds(*type_, layout_.type))
            throw ToolError(as + " files cannot hold " + sampleTypeName(layout_.type) +
                            " samples; use exr, dpx or tif");
    }

    void write(const std::string& path, const FrameBuffer& buffer) const {
        if (!type_) return writeLocalFile(path, buffer.data(), buffer.size());
        if (layout_.bigEndian) swapSamples(layout_, buffer.data());
        imageFunctions().write(path, *type_, layout_, format_.colourSpace(), buffer.data());
    }

  private:
    const VantrelClipFormat format_;
    std::optional<ImageFileType> type_;
    FrameLayout layout_;
};

std::string exportPath(const ExportOptions& options, const std::string& stem, int index) {
    char number[32];
    std::snprintf(number, sizeof number, ".%04d.", index + 1);
    return options.folder + "/" + stem + number + options.as;
}

void exportClip(const Program& program, const ExportOptions& options) {
    const Session session(program, options.server);
    const Output& out = session.output();
    VantrelNodeHandle clip = session.node(options.path);
    VantrelClipFormat format;
    VantrelStr name;
    int count = 0;
    const std::string failed = Session::failed("read clip", options.path);
    session.require(clip.getClipFormat(format), failed);
    session.require(clip.getDisplayName(name), failed);
    session.require(clip.getNumFrames(count), failed);
    const Exporter exporter(format, options.as);
    const FrameBuffer buffer(format.frameBufferSize());
    const std::string stem = safeFileName(name.c_str(), "frame");
    createFolder(options.folder);

    Json files = Json::array();
    {
        Progress progress("exporting '" + options.path + "'", static_cast<std::size_t>(count), "frames");
        for (int i = 0; i < count; ++i) {
            session.checkInterrupt();
            session.require(clip.readFrame(i, buffer.data(), buffer.size()),
                            "cannot read frame " + std::to_string(i) + " of '" + options.path + "'");
            const std::string path = exportPath(options, stem, i);
            exporter.write(path, buffer);
            files.push_back(out.text(path.c_str()));
            progress.advance();
        }
    }
    out.list(files);
}

void declareImport(CLI::App& command, ImportOptions& options) {
    addServer(command, options.server);
    addPath(command, "PARENT", options.parent, "where to create the clip")->required();
    command.add_option("NAME", options.name, "display name of the new clip")->required();
    command.add_option("FILE", options.files, "the image files, a frame each, in order")->required();
    addClipOptions(command, options.clip);
}

void declareExport(CLI::App& command, ExportOptions& options) {
    std::vector<std::string> types{RAW};
    for (const ImageFileType type : IMAGE_TYPES) types.emplace_back(imageFileTypeName(type));
    addServer(command, options.server);
    addPath(command, "PATH", options.path, "the clip")->required();
    command.add_option("DIR", options.folder, "folder for the files; created when it is missing")->required();
    command.add_option("--as", options.as, "type of the files")->required()->check(CLI::IsMember(types));
}

}  // namespace

void addImageCommands(CLI::App& app, Program& program) {
    addCommand<ImportOptions>(app, program, "import", "Create a clip of image files and print its id",
                              declareImport, import);
    addCommand<ExportOptions>(app, program, "export",
                              "Save the frames of a clip as files and print their names", declareExport,
                              exportClip);
}
