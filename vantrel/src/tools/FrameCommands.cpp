#include "CommandOptions.h"
#include "FrameBuffer.h"
#include "FrameLayout.h"
#include "LocalFile.h"
#include "Progress.h"
#include "Session.h"

namespace {

struct ClipPathOptions {
    std::string server;
    std::string path;
};

struct ReadFrameOptions {
    std::string server;
    std::string path;
    int index = 0;
    std::string output;
};

struct WriteFrameOptions {
    std::string server;
    std::string path;
    int index = 0;
    std::string file;
};

using Count = bool (VantrelNodeHandle::*)(int&);
using Text = bool (VantrelNodeHandle::*)(int, VantrelStr&);

// The texts of a list that a clip has.
void listTexts(const Program& program, const ClipPathOptions& options, Count countOf, Text textAt) {
    const Session session(program, options.server);
    const Output& out = session.output();
    VantrelNodeHandle node = session.node(options.path);
    const std::string failed = Session::failed("list the frames of", options.path);
    int count = 0;
    session.require((node.*countOf)(count), failed);
    Json texts = Json::array();
    for (int i = 0; i < count; ++i) {
        session.checkInterrupt();
        VantrelStr text;
        session.require((node.*textAt)(i, text), failed);
        texts.push_back(out.text(text));
    }
    out.list(texts);
}

void frames(const Program& program, const ClipPathOptions& options) {
    listTexts(program, options, &VantrelNodeHandle::getNumFrames, &VantrelNodeHandle::getFrameId);
}

void framePaths(const Program& program, const ClipPathOptions& options) {
    listTexts(program, options, &VantrelNodeHandle::getNumFrameIdPaths, &VantrelNodeHandle::getFrameIdPath);
}

std::string frameName(int index, const std::string& path) {
    return "frame " + std::to_string(index) + " of '" + path + "'";
}

void readFrame(const Program& program, const ReadFrameOptions& options) {
    const Session session(program, options.server);
    VantrelNodeHandle node = session.node(options.path);
    VantrelClipFormat format;
    session.require(node.getClipFormat(format), Session::failed("read the format of", options.path));
    const FrameBuffer buffer(format.frameBufferSize());
    {
        const Progress progress("reading " + frameName(options.index, options.path), 0, "");
        session.require(node.readFrame(options.index, buffer.data(), buffer.size()),
                        "cannot read " + frameName(options.index, options.path) + ": no such frame");
    }
    writeLocalFile(options.output, buffer.data(), buffer.size());
    session.output().done();
}

void writeFrame(const Program& program, const WriteFrameOptions& options) {
    const std::string data = readLocalFile(options.file, MAX_FRAME_BYTES);
    const Session session(program, options.server);
    VantrelNodeHandle node = session.node(options.path);
    {
        const Progress progress("writing " + frameName(options.index, options.path), 0, "");
        session.require(node.writeFrame(options.index, data.data(), data.size()),
                        "cannot write " + frameName(options.index, options.path) + ": no such frame");
    }
    session.output().done();
}

void declareClipPath(CLI::App& command, ClipPathOptions& options) {
    addServer(command, options.server);
    addPath(command, "PATH", options.path, "the clip")->required();
}

void addIndex(CLI::App& command, int& index) {
    command.add_option("INDEX", index, "number of the frame, from 0")
        ->required()
        ->check(CLI::NonNegativeNumber);
}

}  // namespace

void addFrameCommands(CLI::App& app, Program& program) {
    addCommand<ClipPathOptions>(app, program, "frames", "List the frame ids of a clip", declareClipPath,
                                frames);
    addCommand<ClipPathOptions>(app, program, "frame-paths",
                                "List the paths of a clip's frames, as seen from here", declareClipPath,
                                framePaths);
    addCommand<ReadFrameOptions>(
        app, program, "read-frame", "Save the bytes of one frame",
        [](CLI::App& command, ReadFrameOptions& options) {
            addServer(command, options.server);
            addPath(command, "PATH", options.path, "the clip")->required();
            addIndex(command, options.index);
            command.add_option("--output,-o", options.output, "file to write")->required();
        },
        readFrame);
    addCommand<WriteFrameOptions>(
        app, program, "write-frame", "Replace the bytes of one frame",
        [](CLI::App& command, WriteFrameOptions& options) {
            addServer(command, options.server);
            addPath(command, "PATH", options.path, "the clip")->required();
            addIndex(command, options.index);
            command.add_option("FILE", options.file, "file that holds the bytes")->required();
        },
        writeFrame);
}
