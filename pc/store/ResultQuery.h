#pragma once

#include <string_view>

#include "store/CDatabase.h"
#include "store/Records.h"

namespace ZELPC {

/// A statement that reads `columns` of the results that `filter` finds; its texts must live until it has run. `rest` is
/// what follows the conditions. The filter's limit is left to the caller.
CStatement ResultQuery(CDatabase& database, std::string_view columns, const ResultFilter& filter,
                       std::string_view rest);

}  // namespace ZELPC
