// Reads the first frame of a clip into memory:   read_frame render01:7549 "/stor1/demo/Default Library/bars"
#include <vantrel/VantrelClientAPI.h>

#include <cstdio>
#include <memory>
#include <new>

namespace {

// The size comes from the server: take no more than this program is made for.
constexpr unsigned long MAX_FRAME_BYTES = 1UL << 30;

int fail(const char* what, const VantrelServerHandle& server) {
    std::fprintf(stderr, "%s: %s\n", what, server.lastError());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    const VantrelClient client;
    const VantrelServerHandle server{VantrelServerId(argv[1])};

    VantrelNodeHandle clip;
    if (!VantrelResolveDisplayPath(server, argv[2], clip)) return fail("no such clip", server);
    VantrelClipFormat format;
    if (!clip.getClipFormat(format)) return fail("no clip format", server);

    // The format gives the size of one frame; nothing has to be computed from width and height.
    const unsigned long size = format.frameBufferSize();
    if (size > MAX_FRAME_BYTES) return fail("the frame is too large", server);
    const std::unique_ptr<char[]> frame(new (std::nothrow) char[size]);
    if (!frame) return fail("no memory for the frame", server);
    if (!clip.readFrame(0, frame.get(), size)) return fail("cannot read the frame", server);

    std::printf("%dx%d %s, %lu bytes\n", format.width(), format.height(), format.formatTag(), size);
    return 0;
}
