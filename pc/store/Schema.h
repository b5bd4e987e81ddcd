#pragma once

namespace ZELPC {

class CDatabase;

/// Throws std::runtime_error with the reason when the file is damaged, of somebody else or of a newer version. Changes
/// nothing.
void RequireSound(CDatabase& database);

/// Makes the tables of a new store, or brings those of an older version up to date. Throws std::runtime_error when it
/// cannot be written to.
void PrepareSchema(CDatabase& database);

}  // namespace ZELPC
