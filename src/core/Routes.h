#pragma once

#include <vector>

#include "net/Route.h"
#include "process/update/ServiceContext.h"

/// The routes of every endpoint: which request is handled where.
struct Routes {
    std::vector<RMUP::Net::UDPRoute> udp;
    RMUP::Net::TCPRoutes tcp;
    std::vector<RMUP::Net::UDSRoute> uds;
};

/// What every handler is given. Made on the first call, which the main thread makes before there are others.
const RMUP::Process::ServiceContext& Service();

/// Made like what Service() returns; they live as long as the program.
const Routes& AllRoutes();

/// Gives each endpoint its routes. Called once, before any endpoint is started.
void ConnectRoutes();
