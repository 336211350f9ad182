// The rule every reservoir grants slots by: among the rows of the program's CIDs whose lease has
// ended at `now` (a lease ending exactly now has ended), the CID allocated the least far ahead,
// the earlier row on ties; its slot starts at its allocated-till time or `now`, whichever is later,
// and at most EmbedderDatabaseV2::THR_EMBED_IN_FUTURE_SECONDS ahead. Logs the search, one line
// per row, as "Searching for a suitable EID to use for this embedding:" and "EID ...".
#pragma once

#include <vector>

#include "database/CID_Timestamp_Lock_Record.h"

namespace QuillmarBasebandSDK {

// True, with the chosen row in `best` (its Timestamp the slot's start), when a CID can be granted.
bool SelectOldestSuitable(const std::vector<CID_Timestamp_Lock_Record>& records,
                          const std::vector<unsigned>& cids, const SYSTEMTIME& now,
                          CID_Timestamp_Lock_Record& best);

// Logs the change about to be written to one row, as "Updating database: EID ...".
void LogRowUpdate(const CID_Timestamp_Lock_Record& record);

}  // namespace QuillmarBasebandSDK
