#include "process/update/UpdateInfoXml.h"

#include <gtest/gtest.h>

using namespace RMUP::Process;
using QENFx::Common::Version;

namespace {

constexpr char kApp[] =
    "<file_info name=\"zel_app.n62.bin\" major_version=\"1\" minor_version=\"02\" release_patch=\"03\" "
    "build_number=\"0004\" file_path=\"/a\"/>";

class UpdateInfoXml : public testing::Test {
protected:
    UpdateInfoXml() { FillFromCatalogue(images_, true); }

    UpdateInfo Parse(const std::string& text) { return ParseUpdateInfo(text, identity_, images_); }

    static std::string Models(const std::string& human) {
        return "<update><model name=\"N62V\"/><model/><model name=\"N62\">" + human + "</model></update>";
    }

    static std::string Without(std::string text, const std::string& attribute) {
        return text.replace(text.find(attribute), attribute.size(), "other");
    }

    ModelIdentity identity_{"Human", "N62"};
    ImageInfos images_;
};

// Faults: part of a document taken although the rest is not in order, a path that breaks the request line.
TEST_F(UpdateInfoXml, WholeDocumentOrNothing) {
    EXPECT_EQ(Parse("").error, UpdateInfoError::kNoModels);
    EXPECT_EQ(Parse("<html><p>404").error, UpdateInfoError::kNoModels);
    EXPECT_EQ(Parse("<update/>").error, UpdateInfoError::kNoModels);
    for (const char* attribute :
         {"name", "major_version", "minor_version", "release_patch", "build_number", "file_path"}) {
        EXPECT_EQ(Parse(Models(std::string(kApp) + Without(kApp, attribute))).error, UpdateInfoError::kAbnormal);
    }
    EXPECT_EQ(Parse(Models(Without(kApp, "zel_app"))).error, UpdateInfoError::kUnknownName);
    for (const char* path : {"", "a", "/a b", "/a&#13;&#10;Host:x", "/a&#9;"}) {
        std::string file = kApp;
        file.replace(file.find("/a\""), 2, path);
        EXPECT_EQ(Parse(Models(file)).error, UpdateInfoError::kAbnormal) << path;
    }
}

}  // namespace
