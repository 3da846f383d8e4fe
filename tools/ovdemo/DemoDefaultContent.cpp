// Demo step for default content: the device gets an index file packed with the library's own
// writer, and a channel that has no image of its own shows the default channel icon, found in
// that file.
#include "Demo.h"

#include "OVPlatform.h"
#include "model/Channel.h"
#include "model/ImageHolder.h"
#include "storage/NR_DefaultContentMgr.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace {

// A PNG image of one pixel.
const char kIcon[] = "\x89\x50\x4E\x47\x0D\x0A\x1A\x0A\x00\x00\x00\x0D\x49\x48\x44\x52\x00\x00\x00"
                     "\x01\x00\x00\x00\x01\x08\x02\x00\x00\x00\x90\x77\x53\xDE\x00\x00\x00\x0C\x49"
                     "\x44\x41\x54\x78\x9C\x63\xF8\xDF\xC0\x00\x00\x04\x01\x01\x80\xC5\x2A\x18\x5D"
                     "\x00\x00\x00\x00\x49\x45\x4E\x44\xAE\x42\x60\x82";

// The bytes of resource ID, or false.
bool fetch(const ovTypes::ID& id, std::string& bytes) {
    std::stringstream out;
    if (!NR_DefaultContentMgr::get(id, out))
        return false;
    bytes = out.str();
    return true;
}

} // namespace

bool demoDefaultContent() {
    std::printf("\n== default content ==\n");
    const std::string folder = ovplatform::devicePath(NR_DefaultContentMgr::DEFAULT_RESOURCE_PATH);
    const std::string path = folder + "/" + NR_DefaultContentMgr::INDEX_FILE_NAME;
    const DefaultContentResources resources = {
        {"default-channel-icon.png", std::string(kIcon, sizeof kIcon - 1)},
        {"welcome.txt", "Welcome: the first news arrive with the next refresh."}};
    std::error_code ignored;
    std::filesystem::create_directories(folder, ignored);
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!writeDefaultContentIndex(file, resources) || !file.flush()) {
        std::printf("cannot write the index file %s\n", path.c_str());
        return false;
    }
    file.close();
    std::printf("packed %zu resources into %s (%lld bytes)\n", resources.size(), path.c_str(),
                static_cast<long long>(std::filesystem::file_size(path, ignored)));

    Channel channel("demo-channel");
    channel.title = L"Demo channel";
    const NewsObject::Content* image = channel.getImageContent("image");
    if (!image) {
        std::printf("the channel has no image\n");
        return false;
    }
    std::printf("a channel without an image of its own shows \"%s\"\n", image->contextId.c_str());
    ImageHolder holder = channel.getImage("image");
    const bool found = holder.exists();
    std::printf("ImageHolder finds \"%s\" in default content: %s\n", holder.getID().c_str(),
                found ? "yes" : "no");

    std::string icon, welcome;
    const bool iconRead = fetch(holder.getID(), icon);
    const bool isPng = iconRead && icon.compare(0, 8, "\x89PNG\r\n\x1A\n", 8) == 0;
    std::printf("its bytes: %zu, %s\n", icon.size(),
                isPng ? "a PNG image, as packed" : "not the image that was packed");
    const bool welcomeRead = fetch("dc:welcome.txt", welcome);
    std::printf("\"dc:welcome.txt\": %s\n", welcomeRead ? welcome.c_str() : "(not found)");
    const bool missingAbsent = !NR_DefaultContentMgr::exists("dc:missing.png");
    std::printf("\"dc:missing.png\" exists: %s\n", missingAbsent ? "no" : "yes");
    return found && isPng && icon == resources[0].second && welcomeRead && missingAbsent;
}
