#pragma once

#include <span>

#include "net/Route.h"

/// The routes of every endpoint: which request is handled where. They live as long as the program.
struct Routes {
    std::span<const RMUP::Net::UDPRoute> udp;
    const RMUP::Net::TCPRoutes& tcp;
    std::span<const RMUP::Net::UDSRoute> uds;
};

Routes AllRoutes();

/// Gives each endpoint its routes. Called once, before any endpoint is started.
void ConnectRoutes();
