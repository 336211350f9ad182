// PostgresReservoir: the reservoir of CIDs and time slots on a PostgreSQL server, for a fleet of
// embedders on several machines. A SharedDatabase that is a postgresql:// or postgres:// URI
// chooses it. Its operations keep EmbedderDatabaseV2's rules (the selection of the CID allocated
// least far ahead among those not leased, table order on ties, the one-day horizon, leases,
// extension, finalisation, the rows added for new CIDs at Init) and its error texts where the
// situation is the same.
//
// One clock for the fleet: "now", every slot start and every lease come from the server's clock
// (clock_timestamp()), and Init refuses a host whose clock differs from the server's by more than
// the tolerance (the URI's parameter quillmar_clock_tolerance, in seconds; default 1), since the
// host stamps its video with its own clock.
//
// Locking: each operation is one transaction that locks the rows it reads with SELECT ... FOR
// UPDATE, in table order (so two transactions never wait on each other in a circle). Embedders
// whose programs share CIDs take turns on those rows; the others run side by side, so the rate
// grows with the number of embedders. A transaction that fails on a deadlock or a broken
// connection runs again from BEGIN (a few times, reconnecting, never sleeping). A connection that
// breaks while committing leaves the outcome unknown: the call fails, and the next extension or
// finalisation accepts the row in either state. An allocation lost that way holds its CID until
// its lease runs out: time is lost, never handed out twice.
//
// One object per channel, one thread at a time.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "database/CID_Timestamp_Lock_Record.h"
#include "database/TimeSlotReservoir.h"

namespace QuillmarBasebandSDK {

class PgConnection;

class PostgresReservoir : public TimeSlotReservoir {
 public:
  // How far (seconds) the host's clock may differ from the server's when the URI does not say.
  static constexpr double kDefaultClockToleranceSeconds = 1.0;

  // No connection, no allocation.
  PostgresReservoir();
  // Finalises an allocation still held under a lease, keeping its allocated duration.
  ~PostgresReservoir() override;
  PostgresReservoir(const PostgresReservoir&) = delete;
  PostgresReservoir& operator=(const PostgresReservoir&) = delete;

  // Connects to the server at the URI `path`, checks the host's clock against the server's and
  // makes the table, adding a row for each of `cids` it lacks. The first URI is kept.
  bool Init(const char* path, const std::list<unsigned>& cids, std::string& err) override;
  // True when connected.
  bool CheckDatabaseExists() override;
  // Grants a slot as EmbedderDatabaseV2 does, in one transaction, with the server's clock.
  bool AllocateEmbeddingTimeslot(std::vector<unsigned> cids, int durationSeconds, unsigned& cid,
                                 SYSTEMTIME& start, std::string& err, int lockSeconds) override;

  // For tools. Every row at `location`, in table order; `exists` tells whether there is a table
  // yet. Throws std::runtime_error.
  static std::vector<CID_Timestamp_Lock_Record> ReadTable(const std::string& location,
                                                          bool& exists);
  // Merges `rows` into the table at `location`, made when missing: a CID keeps the later of its
  // two allocated-till times, and the lease that goes with it. The number of rows added or
  // changed. Throws std::runtime_error.
  static std::size_t MergeTable(const std::string& location,
                                const std::vector<CID_Timestamp_Lock_Record>& rows);
  // `location` fit to print: its password, if any, hidden.
  static std::string Printable(const std::string& location);

 private:
  int ExtendHeldSlot(int extraSeconds, std::string& err, int lockSeconds) override;
  bool FinalizeHeldSlot(int keepSeconds, std::string& err) override;
  // Also forgets a change in doubt.
  void ResetLockState() override;

  // The allocation's row, locked, inside an open transaction.
  struct HeldRow;
  // What an extension or finalisation writes to the allocation's row.
  struct Change {
    SYSTEMTIME lockEnd;
    std::int32_t duration;
  };
  // Locks and reads the allocated CID's row; false (err set) when it must not be changed.
  bool LockHeldRow(HeldRow& held, std::string& err, const char* leaseLostText);
  // Takes `change` as the allocation's state: it is in the table.
  void Keep(const Change& change);
  // Remembers `written` when `error` leaves unknown whether it was committed.
  void NoteFailure(const std::exception& error, const std::optional<Change>& written);
  std::string SqlErrorText(const char* operation, const std::exception& error) const;

  std::string location_;                      // the first Init's, as given
  std::unique_ptr<PgConnection> connection_;  // null while closed
  std::list<unsigned> configuredCids_;
  // The allocation's times (allocatedStart_, lockEnd_) are as the server wrote them.
  // A change whose commit broke off: the row may hold it instead of lockEnd_.
  std::optional<Change> inDoubt_;
};

}  // namespace QuillmarBasebandSDK
