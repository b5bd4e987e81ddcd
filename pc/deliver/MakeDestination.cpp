#include "deliver/MakeDestination.h"

#include "deliver/CDirectoryDestination.h"
#include "deliver/CMllpDestination.h"
#include "deliver/CRabbitDestination.h"

namespace ZELPC {

std::unique_ptr<CDestination> MakeDestination(const asio::any_io_executor& executor,
                                              const DestinationOptions& options) {
    switch (options.type) {
        case DestinationType::kMllp:
            return std::make_unique<CMllpDestination>(executor, options);
        case DestinationType::kRabbitMq:
            return std::make_unique<CRabbitDestination>(options);
        case DestinationType::kDirectory:
            break;
    }
    return std::make_unique<CDirectoryDestination>(options.directory);
}

}  // namespace ZELPC
