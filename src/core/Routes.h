#pragma once

/// Gives each endpoint its routes: which request is handled where. Called once, before any endpoint is started.
void ConnectRoutes();
