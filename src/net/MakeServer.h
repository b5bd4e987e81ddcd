#pragma once

#include <memory>

#include "platform/Service.h"

namespace RMUP::Net {

/// Makes a server that the framework's remover of finished threads knows, as it knows all threads but the monitor's.
///
/// Such a server still has one owner. The remover deletes a thread once its Run has returned, which a server's never
/// does; destroyed by name it is only before it was started, by a process that ends at once.
template <typename Server>
std::unique_ptr<Server> MakeServer() {
    auto server = std::make_unique<Server>();
    QENFx::Service::ThreadMemoryRemover::GetInstance()->addThread(server.get());
    return server;
}

}  // namespace RMUP::Net
