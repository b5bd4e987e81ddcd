#pragma once

namespace ZELPC {

class CDatabase;

/// Makes the tables of a new store, or brings those of an older version up to date. A file that is damaged, read-only,
/// of somebody else or of a newer version is left alone and std::runtime_error says why.
void PrepareSchema(CDatabase& database);

}  // namespace ZELPC
