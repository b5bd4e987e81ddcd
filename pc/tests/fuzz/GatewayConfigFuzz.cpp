#include "fuzz/Fuzz.h"
#include "gateway/CConfigTable.h"
#include "gateway/ReadGatewayConfig.h"

using Fuzz::Require;
using namespace ZELPC;

/// A configuration that somebody wrote: it is right, or the reason says so with the file's name.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = Fuzz::Text({data, size});
    // A file that is named is read: none that does not end.
    if (text.find("_file") != text.npos) {
        return -1;
    }
    try {
        const GatewayConfig config = ReadGatewayConfig(text, "g.toml");
        Require(!config.destinations.empty(), "results have somewhere to go");
        for (const DestinationOptions& one : config.destinations) {
            Require(!one.name.empty() && one.firstPause <= one.longestPause && one.connections > 0,
                    "a destination is whole");
        }
    } catch (const CConfigError& error) {
        Require(std::string_view(error.what()).starts_with("g.toml"), "an error names the file");
    }
    return 0;
}
