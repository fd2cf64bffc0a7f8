#pragma once

// Parquet keeps timestamps and times of seconds in milliseconds. Arrow's writer stores the
// Arrow schema it was given in the file, and Arrow 11's reader restores time zones from it but
// not the unit of seconds: the columns written as seconds are found there and brought back to
// seconds, so that what pq_write wrote with Unit "s" reads with Unit "s".
#include <string>
#include <vector>

#include <parquet/metadata.h>

#include "host/matrix/Matrix.hpp"

namespace vantro::octave {

// The top-level variables that the file's stored Arrow schema declares as timestamps or times
// of seconds; none when the file stores no Arrow schema (or one that cannot be read: it is a
// hint, and the read itself reports what is wrong with the file).
std::vector<std::string> secondsVariables(const std::u16string& file);
// The same from a footer already read.
std::vector<std::string> secondsVariables(const ::parquet::FileMetaData& footer);

// Turns the millisecond datetime and duration values of the named variables back into
// seconds, where every tick is a whole second. `columns` holds the values in the order of
// `names` (a table's Names and Columns, or the statistics' variables and their minima).
void restoreSeconds(const std::vector<std::string>& names, const vxArray* columns,
                    const std::vector<std::string>& seconds);

// The same for the columns of a host table.
void restoreSecondsInTable(vxArray* table, const std::vector<std::string>& seconds);

}  // namespace vantro::octave
