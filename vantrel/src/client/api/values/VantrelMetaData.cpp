#include <vantrel/VantrelDictionary.h>

namespace {

constexpr const char* FORMAT_KEY = "FORMAT";
constexpr const char* VERSION_MAJOR_KEY = "VERSION_MAJOR";
constexpr const char* VERSION_MINOR_KEY = "VERSION_MINOR";
constexpr const char* DATA_KEY = "DATA";

VantrelStr textOf(const VantrelDictionary& fields, const char* key) {
    VantrelStr text;
    fields.getString(key, text);
    return text;
}

}  // namespace

VantrelMetaData::~VantrelMetaData() = default;

const char* VantrelMetaData::STREAM_BLOB() {
    return "BLOB";
}

const char* VantrelMetaData::STREAM_XML() {
    return "XML";
}

VantrelMetaData::Blob::Blob(const char* data, const char* format, int majorVersion, int minorVersion) {
    fields_.setString(FORMAT_KEY, format ? format : "");
    fields_.setInteger(VERSION_MAJOR_KEY, majorVersion);
    fields_.setInteger(VERSION_MINOR_KEY, minorVersion);
    fields_.setString(DATA_KEY, data ? data : "");
}

VantrelMetaData::Blob::Blob(const char* rawData) : fields_(rawData) {}

VantrelMetaData::Blob::~Blob() = default;

VantrelStr VantrelMetaData::Blob::getData() const {
    return textOf(fields_, DATA_KEY);
}

VantrelStr VantrelMetaData::Blob::getFormat() const {
    return textOf(fields_, FORMAT_KEY);
}

bool VantrelMetaData::Blob::getVersion(int& majorVersion, int& minorVersion) const {
    int foundMajor = 0;
    int foundMinor = 0;
    if (!fields_.getInteger(VERSION_MAJOR_KEY, foundMajor) ||
        !fields_.getInteger(VERSION_MINOR_KEY, foundMinor)) {
        return false;
    }
    majorVersion = foundMajor;
    minorVersion = foundMinor;
    return true;
}

const char* VantrelMetaData::Blob::getRawData() const {
    return fields_.getStream();
}
