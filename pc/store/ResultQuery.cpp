#include "store/ResultQuery.h"

#include <fmt/format.h>

#include <limits>

namespace ZELPC {

CStatement ResultQuery(CDatabase& database, std::string_view columns, const ResultFilter& filter,
                       std::string_view rest) {
    constexpr std::int64_t kEver = std::numeric_limits<std::int64_t>::max();
    // A condition that does not restrict is left out, so that the index of one that does is used.
    std::string sql = fmt::format("SELECT {} FROM result WHERE id < ?1 AND id > ?6", columns);
    sql += filter.serial.empty() ? " AND ?2 = ''" : " AND serial = ?2";
    sql += filter.patient.empty() ? " AND ?3 = ''" : " AND patient = ?3";
    sql += filter.since == 0 ? " AND ?4 = 0" : " AND received >= ?4";
    sql += filter.until == 0 ? " AND ?5 > 0" : " AND received < ?5";
    sql += fmt::format(" {}", rest);
    CStatement statement = database.Prepare(sql);
    statement.Bind(filter.before == 0 ? kEver : filter.before, filter.serial, filter.patient, filter.since,
                   filter.until == 0 ? kEver : filter.until, filter.after);
    return statement;
}

}  // namespace ZELPC
