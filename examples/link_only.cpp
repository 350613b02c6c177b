// Links the library and never brings it up: loading and unloading it alone must do nothing.
#include <vantrel/VantrelClientAPI.h>

int main(int argc, char**) {
    // Never true, but the linker cannot know and keeps the library.
    return argc > 1000 && VantrelClientInit() ? 1 : 0;
}
