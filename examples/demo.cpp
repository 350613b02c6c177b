// The main job from end to end, through the public API: a server is found on the network by its storage id;
// an image sequence goes into it as a clip, comes back byte for byte, and leaves as image files.
//   vantrel_demo STORAGE_ID FOLDER
#include <vantrel/VantrelClientAPI.h>

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "DemoImages.h"
#include "FrameLayout.h"
#include "ImageFiles.h"
#include "ToolError.h"

namespace {

constexpr int FRAMES = 12;
constexpr float FRAME_RATE = 24.0F;
constexpr const char* CLIP_NAME = "turning ball";

using Frame = std::vector<std::uint16_t>;

// FNV-1a, 64 bits: enough to see that two frames differ, and short to print.
std::uint64_t checksum(const Frame& frame) {
    std::uint64_t sum = 0xcbf29ce484222325U;
    const auto* bytes = reinterpret_cast<const unsigned char*>(frame.data());
    for (std::size_t i = 0; i < frame.size() * sizeof frame[0]; ++i) sum = (sum ^ bytes[i]) * 0x100000001b3U;
    return sum;
}

void require(bool good, const char* attempt, const VantrelServerHandle& server) {
    if (!good) throw ToolError(std::string("cannot ") + attempt + ": " + server.lastError());
}

void makeFolder(const std::string& path) {
    if (mkdir(path.c_str(), 0777) != 0 && errno != EEXIST)
        throw ToolError("cannot create folder '" + path + "': " + std::strerror(errno));
}

std::string frameFile(const std::string& folder, int index) {
    char name[32];
    std::snprintf(name, sizeof name, "/ball.%04d.png", index + 1);
    return folder + name;
}

VantrelServerId findServer(const char* storageId) {
    VantrelServerList list;
    VantrelServerId id;
    if (!list.resolveStorageId(storageId, id))
        throw ToolError(std::string("cannot find storage '") + storageId + "': " + list.lastError());
    std::printf("Found storage '%s' at %s, port %d\n", storageId, id.getIPAddr(), id.getPort());
    return id;
}

class Demo {
  public:
    Demo(const VantrelServerHandle& server, std::string folder)
        : server_(server), folder_(std::move(folder)), layout_(demoLayout()) {}

    void run() {
        makeSequence();
        introduce();
        importSequence(createClip());
        VantrelNodeHandle root;
        require(server_.getRootNode(root), "find the root", server_);
        std::printf("The server's tree:\n");
        walk(root, 1);
        compareFrames();
        exportFrames();
    }

  private:
    void makeSequence() {
        makeFolder(folder_ + "/images");
        for (int i = 0; i < FRAMES; ++i)
            writeImage(frameFile(folder_ + "/images", i), ImageFileType::Png, layout_, "sRGB",
                       paintFrame(layout_, i, FRAMES).data());
        std::printf("Made %d images of %dx%d, 16-bit rgb, in %s/images\n", FRAMES, layout_.width,
                    layout_.height, folder_.c_str());
    }

    void introduce() {
        VantrelServerInfo info;
        require(server_.getInfo(info), "connect", server_);
        std::printf("Connected to '%s': %s %s on host %s\n", info.getDisplayName(), info.getVendor(),
                    info.getProduct(), info.getHostname());
    }

    VantrelNodeHandle createClip() {
        VantrelNodeHandle node;
        require(server_.getRootNode(node), "find the root", server_);
        const char* const path[][2] = {
            {"stor1", "VOLUME"}, {"demo", "PROJECT"}, {"Default Library", "LIBRARY"}, {"reel 1", "REEL"}};
        for (const auto& step : path) {
            VantrelNodeHandle child;
            require(node.createNode(step[0], step[1], child), "create a node", server_);
            node = child;
        }
        const VantrelClipFormat format =
            clipFormatOf(layout_, FRAME_RATE, 1.0F, VantrelClipFormat::PROGRESSIVE, "sRGB");
        VantrelNodeHandle clip;
        require(node.createClipNode(CLIP_NAME, format, "CLIP", clip), "create the clip", server_);
        require(clip.setNumFrames(FRAMES), "allocate the frames", server_);
        return clip;
    }

    void importSequence(VantrelNodeHandle clip) {
        Frame frame(layout_.frameBytes() / sizeof(std::uint16_t));
        for (int i = 0; i < FRAMES; ++i) {
            const std::string file = frameFile(folder_ + "/images", i);
            if (describeImage(file).layout.frameBytes() != layout_.frameBytes())
                throw ToolError("'" + file + "' is not the image that was made");
            readImage(file, layout_, frame.data());
            sums_.push_back(checksum(frame));
            require(clip.writeFrame(i, frame.data(), layout_.frameBytes()), "write a frame", server_);
        }
        std::printf("Imported them as clip '%s'\n", CLIP_NAME);
    }

    void walk(VantrelNodeHandle& node, int level) {
        VantrelStr name;
        VantrelStr type;
        int children = 0;
        require(node.getDisplayName(name) && node.getNodeTypeStr(type) && node.getNumChildren(children),
                "walk the tree", server_);
        std::printf("%*s%s (%s)\n", level * 2, "", name.c_str(), type.c_str());
        for (int i = 0; i < children; ++i) {
            VantrelNodeHandle child;
            require(node.getChild(i, child), "walk the tree", server_);
            walk(child, level + 1);
        }
    }

    // A second handle connects again, so that nothing is answered from memory.
    void compareFrames() {
        const VantrelServerHandle server(server_.getId());
        VantrelNodeHandle clip;
        const std::string path = std::string("/stor1/demo/Default Library/reel 1/") + CLIP_NAME;
        require(VantrelResolveDisplayPath(server, path.c_str(), clip), "find the clip", server);
        VantrelClipFormat format;
        int count = 0;
        require(clip.getClipFormat(format) && clip.getNumFrames(count), "read the clip's format", server);
        if (count != FRAMES || frameLayoutOf(format).frameBytes() != layout_.frameBytes())
            throw ToolError("the clip came back with another format");
        ContactSheet sheet(layout_, FRAMES);
        for (int i = 0; i < FRAMES; ++i) {
            Frame frame(layout_.frameBytes() / sizeof(std::uint16_t));
            require(clip.readFrame(i, frame.data(), layout_.frameBytes()), "read a frame", server);
            const std::uint64_t sum = checksum(frame);
            std::printf("  frame %2d  %016llx  %s\n", i + 1, static_cast<unsigned long long>(sum),
                        sum == sums_[static_cast<std::size_t>(i)] ? "equal" : "DIFFERENT");
            if (sum != sums_[static_cast<std::size_t>(i)]) throw ToolError("a frame came back changed");
            sheet.add(i, frame.data());
            frames_.push_back(std::move(frame));
        }
        sheet.save(folder_ + "/contact-sheet.png");
    }

    void exportFrames() {
        makeFolder(folder_ + "/export");
        Frame again(layout_.frameBytes() / sizeof(std::uint16_t));
        for (int i = 0; i < FRAMES; ++i) {
            const std::string file = frameFile(folder_ + "/export", i);
            const Frame& frame = frames_[static_cast<std::size_t>(i)];
            writeImage(file, ImageFileType::Png, layout_, "sRGB", frame.data());
            readImage(file, layout_, again.data());
            if (again != frame) throw ToolError("'" + file + "' does not hold the frame that was exported");
        }
        std::printf("Exported %d images to %s/export\n", FRAMES, folder_.c_str());
    }

    const VantrelServerHandle& server_;
    const std::string folder_;
    const FrameLayout layout_;
    std::vector<std::uint64_t> sums_;
    std::vector<Frame> frames_;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: vantrel_demo STORAGE_ID FOLDER\n");
        return 2;
    }
    const VantrelClient client;
    try {
        const VantrelServerHandle server(findServer(argv[1]));
        Demo(server, argv[2]).run();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vantrel_demo: %s\n", error.what());
        return 1;
    }
}
