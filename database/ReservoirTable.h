// ReservoirTable: what a time-slot reservoir holds, read and merged as a whole, for tools. The
// location is a SharedDatabase value: a SQLite file's path or a PostgreSQL URI.
//
// Reading never creates or changes anything. Every failure throws std::runtime_error (the SQLite
// layer's and libpq's errors are of that kind).
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "database/CID_Timestamp_Lock_Record.h"

namespace QuillmarBasebandSDK {

class ReservoirTable {
 public:
  struct Snapshot {
    // The SQLite file's schema version; none for a server's table.
    std::optional<int> version;
    // True when there is a table of rows an embedder could use (the current schema).
    bool usable = false;
    // Every row, in table order.
    std::vector<CID_Timestamp_Lock_Record> rows;
  };

  // The rows at `location`, read in one transaction.
  static Snapshot Read(const std::string& location);

  // Merges `rows` into the reservoir at `location` (made, or a SQLite file converted, when
  // needed): a CID missing there is added; one present takes the row's times when the row is
  // allocated further ahead. The number of rows added or changed.
  static std::size_t Merge(const std::string& location,
                           const std::vector<CID_Timestamp_Lock_Record>& rows);

  // `location` fit to print: a URI's password hidden.
  static std::string Printable(const std::string& location);
};

}  // namespace QuillmarBasebandSDK
