#include "database/SlotSelection.h"

#include <boost/format.hpp>

#include "database/EmbedderDatabaseV2.h"
#include "database/TimeTicks.h"
#include "framework/Logger.h"

namespace QuillmarBasebandSDK {
namespace {

using Framework::Logger;

std::string LockText(const SYSTEMTIME& lockedTill) {
  return lockedTill.wYear != 1601
             ? ", locked till " + EmbedderDatabaseV2::SystemTimeToString(&lockedTill) + ". "
             : std::string(", not locked. ");
}

}  // namespace

bool SelectOldestSuitable(const std::vector<CID_Timestamp_Lock_Record>& records,
                          const std::vector<unsigned>& cids, const SYSTEMTIME& now,
                          CID_Timestamp_Lock_Record& best) {
  Logger::Info("Searching for a suitable EID to use for this embedding:");
  if (records.empty()) return false;

  // The lines are built only when a sink will write them, and written at once: a search may
  // read 10,000 rows.
  const bool logRows = Logger::Writes(Framework::EventLevel::Info);
  std::vector<std::string> lines;
  if (logRows) lines.reserve(records.size());
  const std::uint64_t nowTicks = TimeTicks::FromSystemTime(now);
  bool found = false;
  for (const CID_Timestamp_Lock_Record& record : records) {
    std::string verdicts;  // one for each time the program lists the CID
    bool inProgram = false;
    for (const unsigned cid : cids) {
      if (cid != record.CID) continue;
      inProgram = true;
      if (TimeTicks::FromSystemTime(record.LockedTill) > nowTicks) {
        if (logRows) {
          verdicts +=
              "EID is in program, but still locked by another embedding instance. Cannot use.";
        }
      } else {
        if (logRows) verdicts += "EID is in program, and not locked. Can use!";
        best = found ? EmbedderDatabaseV2::FindOlderRecord(best, record) : record;
        found = true;
      }
    }
    if (logRows) {
      lines.push_back("EID " + std::to_string(record.CID) + " allocated till " +
                      EmbedderDatabaseV2::SystemTimeToString(&record.Timestamp) +
                      LockText(record.LockedTill) +
                      (inProgram ? verdicts : "EID is not in program, cannot use."));
    }
  }
  Logger::WriteAll(Framework::EventLevel::Info, std::move(lines));
  if (!found) return false;

  best.Timestamp = EmbedderDatabaseV2::FindNewerTimestamp(&best.Timestamp, &now);
  const std::int64_t ahead = EmbedderDatabaseV2::DurationSeconds(&now, &best.Timestamp);
  if (ahead < EmbedderDatabaseV2::THR_EMBED_IN_FUTURE_SECONDS + 1) return true;
  Logger::Error(boost::format("Best suitable timeslot starts %1% seconds in the future; it is more "
                              "than allowed %2% seconds. Embedding is not possible!") %
                ahead % EmbedderDatabaseV2::THR_EMBED_IN_FUTURE_SECONDS);
  return false;
}

void LogRowUpdate(const CID_Timestamp_Lock_Record& record) {
  if (!Logger::Writes(Framework::EventLevel::Info)) return;
  Logger::Info(boost::format("Updating database: EID %1% allocated till %2%, locked till %3%") %
               record.CID % EmbedderDatabaseV2::SystemTimeToString(&record.Timestamp) %
               EmbedderDatabaseV2::SystemTimeToString(&record.LockedTill));
}

}  // namespace QuillmarBasebandSDK
