// Lines that break a rule of the library, for the console and for the control socket: each is
// refused with the rule, and without the checks it ends the process.
#pragma once

#include <cstdlib>
#include <fstream>
#include <ostream>
#include <string>
#include <vector>

namespace Breaks {

// Matches what any fatal assertion leaves on the standard error. With UMBRA_BY_NAME=<file> in the
// environment, the report is appended to that file: tools/check/by-name reads there what can be
// reached by name.
class EndsByAssertion {
 public:
  using is_gtest_matcher = void;

  bool MatchAndExplain(const std::string& output, std::ostream*) const {
    const std::size_t end = output.rfind("\" failed");
    if (end == std::string::npos || output.find(": assertion \"") == std::string::npos)
      return false;
    if (const char* notes = std::getenv("UMBRA_BY_NAME"); notes != nullptr) {
      const std::size_t begin = output.rfind('\n', end);
      std::ofstream(notes, std::ios::app)
          << output.substr(begin == std::string::npos ? 0 : begin + 1, end) << "\n";
    }
    return true;
  }
  void DescribeTo(std::ostream* out) const { *out << "a fatal assertion's report"; }
  void DescribeNegationTo(std::ostream* out) const { *out << "no fatal assertion's report"; }
};

struct Break {
  const char* name;
  std::vector<const char*> before;  // lines that prepare it
  const char* line;
  const char* rule;                     // a part of the refusal
  std::vector<const char*> after = {};  // lines that need the rule
};

inline void PrintTo(const Break& breach, std::ostream* out) { *out << breach.name; }

// A region of its own, /t, of 10 entries of 8 bytes, with a shadow and registers that no table
// uses.
inline constexpr const char* table =
    "let t = call chipMemoryFactory name=t address=0x1:00084000 entries=10 entrySize=8 stride=8 "
    "chipHam=/shadow/chipMemory/vlan/chipHam";
inline constexpr const char* shadowed = "set /t/shadowEnabled true";
inline constexpr const char* idle = "set /shadow/state idle";
inline constexpr const char* unconfigured = "set /shadow/state unconfigured";
// Slices that begin where each region begins.
inline constexpr const char* sliced = "set /reader/maxEntriesPerRead 64";
inline constexpr const char* quick = "set /reader/readInterval 0.0001";
inline constexpr const char* auditing = "set /shadow/state auditing";
inline constexpr const char* audited = "set /t/auditEnabled true";
inline constexpr const char* entered = "call /shadow/auditReadRequest/chipMemoryIs chipMemory=/t";

// An access method without registers, and entries that are no whole registers.
inline constexpr const char* noRegisters =
    "let ham = call genericChipHamFactory name=ham hamImpl=null";
inline constexpr const char* onNoRegisters =
    "let t = call chipMemoryFactory name=t address=0x1:00084000 entries=10 entrySize=8 stride=8 "
    "chipHam=/ham";
inline constexpr const char* odd =
    "let t = call chipMemoryFactory name=t address=0x1:00084000 entries=10 entrySize=6 stride=8 "
    "chipHam=/shadow/chipMemory/vlan/chipHam";
inline constexpr const char* unmarked =
    "let t = call chipMemoryFactory name=t address=0x1:00084000 entries=10 entrySize=8 stride=0 "
    "chipHam=null";
inline constexpr const char* empty =
    "let t = call chipMemoryFactory name=t address=0x1:00084000 entries=0 entrySize=8 stride=8 "
    "chipHam=/shadow/chipMemory/vlan/chipHam";
// A table whose buffers have lengths of their own.
inline constexpr const char* small =
    "let small = call chipMemoryFactory name=small address=0x1:00088000 entries=1 entrySize=4 "
    "stride=4 chipHam=null";

inline constexpr const char* smallShadowed = "set /small/shadowEnabled true";
// A store of another region, which is too small for /t.
inline constexpr const char* smallStore = "set /t/shadow /small/shadow";
inline constexpr const char* smallDirty = "set /t/dirty /small/dirty";
inline constexpr const char* smallInitialized = "set /t/initialized /small/initialized";
// A table whose bits fill whole bytes.
inline constexpr const char* eight =
    "let t = call chipMemoryFactory name=t address=0x1:00084000 entries=8 entrySize=8 stride=8 "
    "chipHam=/shadow/chipMemory/vlan/chipHam";

inline const Break breaks[] = {
    // Access methods.
    {"doRead_entrySize",
     {},
     "call /shadow/chipMemory/vlan/chipHam/doRead address=0 entrySize=6 entries=1",
     "entrySize (6) must be a multiple of 4 for the access method vlan"},
    {"doWrite_entrySize",
     {},
     "call /shadow/chipMemory/port/chipHam/doWrite address=0 buffer=0102 entrySize=2 entries=1",
     "entrySize (2) must be a multiple of 4 for the access method port"},
    {"doRead_registers",
     {noRegisters},
     "call /ham/doRead address=0 entrySize=4 entries=1",
     "the access method ham has no register access: hamImpl is null"},
    // Regions.
    {"entryIndexFromAddress_stride",
     {unmarked},
     "call /t/entryIndexFromAddress addr=0x1:00084000",
     "t has stride 0"},
    {"auditEnabled_override",
     {table, "set /t/mode override"},
     audited,
     "a region in mode override cannot be audited"},
    {"handleAuditEnabled_override",
     {table, audited, "set /t/mode override"},
     "call /t/handleAuditEnabled",
     "a region in mode override cannot be audited"},
    {"mode_normalWritesBack",
     {odd, shadowed, "set /t/mode buffered"},
     "set /t/mode normal",
     "entrySize (6) must be a multiple of 4"},
    {"mode_normalNeedsRegisters",
     {noRegisters, onNoRegisters, shadowed, "set /t/mode buffered"},
     "set /t/mode normal",
     "has no register access"},
    {"handleMode_noAccessMethod",
     {unmarked, shadowed},
     "call /t/handleMode",
     "the region has no access method"},
    {"writeback_all",
     {odd, shadowed},
     "call /t/writeback initializedOnly=false",
     "entrySize (6) must be a multiple of 4"},
    {"writeback_initialized",
     {odd, shadowed, "call /t/doClear"},
     "call /t/writeback initializedOnly=true",
     "entrySize (6) must be a multiple of 4"},
    {"mode_overrideUnderAudit",
     {idle, sliced, quick, table, shadowed, audited, entered, auditing},
     "set /t/mode override",
     "t is being audited: it must not enter override"},
    {"doClear_noShadow", {table}, "call /t/doClear", "t has no shadow: shadowEnabled must be true"},
    {"doClearRange_noShadow",
     {table},
     "call /t/doClearRange startIndex=0 endIndex=1",
     "t has no shadow"},
    {"doClearRange_endIndex",
     {table, shadowed},
     "call /t/doClearRange startIndex=0 endIndex=11",
     "endIndex (11) must not be above entries (10)"},
    {"doClearRange_startIndex",
     {table, shadowed},
     "call /t/doClearRange startIndex=3 endIndex=2",
     "startIndex (3) must not be above endIndex (2)"},
    {"doClearRange_fewBits",
     {table, small, smallShadowed, smallStore, smallDirty, smallInitialized},
     "call /t/doClearRange startIndex=0 endIndex=9",
     "10 entries (80 bytes) must fit into the shadow of 4 bytes"},
    {"doClearRange_smallShadow",
     {table, small, smallShadowed, smallStore, smallDirty, smallInitialized},
     "call /t/doClearRange startIndex=0 endIndex=5",
     "6 entries (48 bytes) must fit into the shadow of 4 bytes"},
    {"doClearRange_noSpareBit",
     {small, smallShadowed, eight, shadowed, smallDirty, smallInitialized},
     "call /t/doClearRange startIndex=0 endIndex=8",
     "dirty and initialized must have a bit for endIndex (8)"},
    {"writeback_smallShadow",
     {table, small, smallShadowed, smallStore},
     "call /t/writeback initializedOnly=false",
     "all entries (80 bytes) must fit into the shadow of 4 bytes"},
    {"writeback_smallShadowOfKnown",
     {table, small, smallShadowed, smallStore, smallDirty, smallInitialized,
      "call /small/entryInitializedIs entryIndex=1"},
     "call /t/writeback initializedOnly=true",
     "10 entries (80 bytes) must fit into the shadow of 4 bytes"},
    {"writeback_noAccessMethod",
     {unmarked, shadowed, "call /t/entryInitializedIs entryIndex=0"},
     "call /t/writeback initializedOnly=true",
     "the region has no access method"},
    {"entryInitialized_noShadow",
     {table},
     "call /t/entryInitialized entryIndex=0",
     "t has no shadow"},
    {"entryInitialized_index",
     {table, shadowed},
     "call /t/entryInitialized entryIndex=16",
     "entryIndex (16) must be below entries (10)"},
    {"entryInitializedIs_index",
     {table, shadowed},
     "call /t/entryInitializedIs entryIndex=400",
     "entryIndex (400) must be below entries (10)"},
    {"entryInitializedDel_index",
     {table, shadowed},
     "call /t/entryInitializedDel entryIndex=16",
     "entryIndex (16) must be below entries (10)"},
    {"shadow_null",
     {},
     "set /shadow/chipMemory/vlan/shadow null",
     "vlan needs a buffer of 8192 bytes here, not null"},
    {"dirty_null",
     {},
     "set /shadow/chipMemory/vlan/dirty null",
     "vlan needs a buffer of 128 bytes here, not null"},
    {"initialized_small",
     {small, "set /small/shadowEnabled true"},
     "set /shadow/chipMemory/vlan/initialized /small/initialized",
     "vlan needs a buffer of 128 bytes here, not one of 1"},
    {"hardware_smallUnderAudit",
     {small},
     "set /shadow/chipMemory/vlan/hardware /small/hardware",
     "vlan needs a buffer of 8192 bytes here, not one of 4"},
    // The directory.
    {"entries_underAudit",
     {"let t = call /directory/chipMemoryIs name=t address=0x1:00084000 entries=10 entrySize=8 "
      "stride=8 chipHam=/shadow/chipMemory/vlan/chipHam",
      idle, shadowed, audited, entered, auditing},
     "call /directory/chipMemoryIs name=t address=0x1:00084000 entries=11 entrySize=8 stride=8 "
     "chipHam=/shadow/chipMemory/vlan/chipHam",
     "t is being audited: its entries must not change"},
    // Requests.
    {"request_state",
     {},
     "set /shadow/auditReadRequest/state 7",
     "a request's state is 0 (idle), 1 (start) or 2 (stop), not 7"},
    {"request_startOfNothing",
     {idle, "let r = call chipReadRequestFactory name=r", "set /reader/request /r"},
     "set /r/state 1",
     "r has no regions: a reader must have something to read"},
    {"request_startUnreadable",
     {idle, "let r = call chipReadRequestFactory name=r", "set /reader/request /r",
      "call /r/chipMemoryIs chipMemory=/shadow/chipMemory/stack"},
     "set /r/state 1",
     "stack is in mode override: it cannot be read"},
    {"request_failed", {}, "set /shadow/auditReadRequest/status 2", "must not fail"},
    {"request_doneWithoutHardware",
     {idle, small, "set /small/shadowEnabled true", "set /small/auditEnabled true",
      "call /shadow/auditReadRequest/chipMemoryIs chipMemory=/small"},
     auditing,
     "the region has no access method"},
    {"request_unreadableRegion",
     {empty, shadowed, audited},
     entered,
     "t has no entries: there is nothing to read"},
    {"request_delAll",
     {},
     "call /shadow/auditReadRequest/chipMemoryDelAll",
     "the last region under audit must not be removed"},
    {"request_delLast",
     {idle, table, shadowed, audited, "call /shadow/auditReadRequest/chipMemoryDelAll", entered,
      auditing},
     "call /shadow/auditReadRequest/chipMemoryDel address=/t/address",
     "the last region under audit must not be removed"},
    // The reader.
    {"doRead_nothing", {idle}, "call /reader/doRead", "the reader has no current region"},
    {"doRead_beyond",
     {idle, "set /reader/currentChipMemory /shadow/chipMemory/vlan",
      "set /reader/entriesRead 1024"},
     "call /reader/doRead",
     "entriesRead (1024) must be below the entries (1024) of vlan"},
    {"doRead_farBeyond",
     {idle, "set /reader/currentChipMemory /shadow/chipMemory/vlan",
      "set /reader/entriesRead 2000"},
     "call /reader/doRead",
     "entriesRead (2000) must be below the entries (1024) of vlan"},
    {"doRead_override",
     {idle, "set /reader/currentChipMemory /shadow/chipMemory/stack"},
     "call /reader/doRead",
     "stack is in mode override"},
    {"handleReadRequest_nothing",
     {"let r = call chipReadRequestFactory name=r", "set /r/state 1", "set /reader/request null",
      "let n = call chipReaderFactory activity=/activity request=/r clock=/clock "
      "maxEntriesPerRead=1 readInterval=1"},
     "call /n/handleReadRequest",
     "r has no regions"},
    {"request_replaced",
     {idle, "let r = call chipReadRequestFactory name=r", "set /r/state 1"},
     "set /reader/request /r",
     "r has no regions"},
    {"currentChipMemory_null",
     {"set /shadow/auditReadRequest/state 1"},
     "set /reader/currentChipMemory null",
     "the reader has no current region"},
    {"entriesRead_beyond",
     {"set /shadow/auditReadRequest/state 1"},
     "set /reader/entriesRead 65536",
     "entriesRead (65536) must be below the entries (65536) of mac"},
    {"queue_unreadable",
     {idle},
     "call /reader/chipMemoryIs chipMemory=/shadow/chipMemory/stack",
     "stack is in mode override",
     {auditing}},
    // The shadow's states and registry.
    {"state_configuredTwice",
     {},
     "set /shadow/state configured",
     "configured must come after unconfigured"},
    {"state_idleFirst",
     {"let s = call hardwareShadowFactory activity=/activity clock=/clock"},
     "set /s/state idle",
     "idle must come after configured"},
    {"state_auditingFirst",
     {"let s = call hardwareShadowFactory activity=/activity clock=/clock"},
     "set /s/state auditing",
     "auditing must come after configured"},
    {"state_auditingOverride",
     {idle, sliced, quick, table, shadowed, audited, entered, "set /t/mode override"},
     auditing,
     "t is in mode override: it cannot be read"},
    {"state_auditingHardware",
     {"let t = call /directory/chipMemoryIs name=t address=0x1:00084000 entries=10 entrySize=8 "
      "stride=8 chipHam=/shadow/chipMemory/vlan/chipHam",
      idle, shadowed, audited, entered,
      "call /directory/chipMemoryIs name=t address=0x1:00084000 entries=11 entrySize=8 stride=8 "
      "chipHam=/shadow/chipMemory/vlan/chipHam"},
     auditing,
     "hardware must hold 11 entries (88 bytes); it keeps the size"},
    {"auditReadRequest_null",
     {idle},
     "set /shadow/auditReadRequest null",
     "the audit's request must not be null",
     {auditing}},
    {"auditReadRequest_empty",
     {"wait 1 pass", "let r = call chipReadRequestFactory name=r", "set /reader/request /r"},
     "set /shadow/auditReadRequest /r",
     "must have regions"},
    {"registry_add",
     {table},
     "call /shadow/chipMemoryIs chipMemory=/t",
     "regions are registered and removed while the shadow is unconfigured"},
    {"registry_remove",
     {},
     "call /shadow/chipMemoryDel address=/shadow/chipMemory/mac/address",
     "regions are registered and removed while the shadow is unconfigured"},
    {"handleChipMemory",
     {},
     "call /shadow/handleChipMemory address=0",
     "regions are registered and removed while the shadow is unconfigured"},
    {"auditSwitched_auditing",
     {},
     "call /shadow/chipMemoryAuditEnabledIs chipMemory=/shadow/chipMemory/mac auditEnabled=false",
     "a region's audit is switched while the shadow is idle"},
    {"auditSwitched_override",
     {idle},
     "call /shadow/chipMemoryAuditEnabledIs chipMemory=/shadow/chipMemory/stack auditEnabled=true",
     "a region in mode override cannot be audited"},
    {"doFixBadRegister_access",
     {unmarked},
     "call /shadow/doFixBadRegister chipMemory=/t entry=0 data=0102030405060708",
     "the region has no access method"},
    // The data path.
    {"find_size",
     {},
     "call /shadow/findChipMemory address=0x1:00080000 size=9",
     "size (9) must be a multiple of the entrySize (8) of vlan"},
    {"find_last",
     {"set /shadow/lastChipMemory /shadow/chipMemory/vlan"},
     "call /shadow/findChipMemory address=0x1:00080008 size=4",
     "size (4) must be a multiple of the entrySize (8) of vlan"},
    {"find_noChunk",
     {"call /shadow/chipMemoryChunkArrayDel index=0"},
     "call /shadow/findChipMemory address=0x1:00080000 size=8",
     "chipMemoryChunkArray must have a chunk"},
    {"find_noRegion",
     {"call /shadow/chipMemoryChunk/1/chipMemoryDel index=1"},
     "call /shadow/findChipMemory address=0x1:00080000 size=8",
     "the chunk's chipMemory must have a region"},
    {"write_size",
     {},
     "call /shadow/shadowWriteAndCompareWithCache chipMemory=/shadow/chipMemory/vlan entry=0 "
     "data=010203 size=3",
     "size (3) must be a multiple of the entrySize (8) of vlan"},
    {"write_entry",
     {},
     "call /shadow/shadowWriteAndCompareWithCache chipMemory=/shadow/chipMemory/vlan entry=1024 "
     "data=0102030405060708 size=8",
     "entry (1024) and 1 entry must lie within the entries (1024) of vlan"},
    {"write_noShadow",
     {table},
     "call /shadow/shadowWriteAndCompareWithCache chipMemory=/t entry=0 data=0102030405060708 "
     "size=8",
     "t has no shadow"},
    {"write_noAccessMethod",
     {unmarked, shadowed},
     "call /shadow/shadowWriteAndCompareWithCache chipMemory=/t entry=0 data=0102030405060708 "
     "size=8",
     "the region has no access method"},
    {"writeHack_end",
     {},
     "call /shadow/shadowWriteHack address=0x1:00081ff8 dataPtr=01020304050607080102030405060708 "
     "size=16",
     "entry (1023) and 2 entries must lie within the entries (1024) of vlan"},
    {"writeU32_size",
     {},
     "call /shadow/shadowWriteU32 address=0x1:00080000 value=1",
     "size (4) must be a multiple of the entrySize (8) of vlan"},
    {"readHack_end",
     {},
     "call /shadow/readFromCacheHack address=0x1:00081ff8 size=16",
     "entry (1023) and 2 entries must lie within the entries (1024) of vlan"},
    {"readHack_unconfigured",
     {idle, unconfigured, "set /shadow/lastChipMemory /shadow/chipMemory/vlan"},
     "call /shadow/readFromCacheHack address=0x1:00080000 size=8",
     "the shadow must not be unconfigured"},
    {"readU32_size",
     {},
     "call /shadow/readFromCacheU32 address=0x1:00080000",
     "size (4) must be a multiple of the entrySize (8) of vlan"},
    {"readHack_noShadow",
     {"set /shadow/chipMemory/vlan/shadowEnabled false"},
     "call /shadow/readFromCacheHack address=0x1:00080000 size=8",
     "vlan has no shadow"},
};

inline constexpr const char* goIdle = "set /shadow/state idle";
// A region whose entries are no whole registers.
inline constexpr const char* oddTable =
    "let t = call chipMemoryFactory name=t address=0x1:00084000 entries=10 entrySize=6 stride=8 "
    "chipHam=/shadow/chipMemory/vlan/chipHam";
inline constexpr const char* oddShadowed = "set /t/shadowEnabled true";
inline constexpr const char* oddAudited = "set /t/auditEnabled true";
inline constexpr const char* oddEntered =
    "call /shadow/auditReadRequest/chipMemoryIs chipMemory=/t";
inline constexpr const char* oddBuffered = "set /t/mode buffered";
inline constexpr const char* oddCleared = "call /t/doClear";
inline constexpr const char* newRequest = "let r = call chipWriteRequestFactory name=r";
inline constexpr const char* ofOddTable = "call /r/chipMemoryIs chipMemory=/t";
inline constexpr const char* newWriter =
    "let w = call chipWriterFactory activity=/activity shadow=/shadow request=/r clock=/clock "
    "maxEntriesPerWrite=64 maxEntriesPerSlice=1024 writeInterval=0.001";

// Rules of a shadow that audits by itself and of what it works with.
inline const Break patrolBreaks[] = {
    {"auditing_access",
     {goIdle, oddTable, oddShadowed, oddAudited, oddEntered},
     "set /shadow/state auditing",
     "entrySize (6) must be a multiple of 4 for the access method vlan"},
    {"request_access",
     {oddTable, oddShadowed, oddAudited},
     oddEntered,
     "entrySize (6) must be a multiple of 4"},
    {"request_failed",
     {},
     "set /shadow/auditReadRequest/status 2",
     "must not fail: set the shadow idle first"},
    {"request_null",
     {goIdle},
     "set /shadow/auditReadRequest null",
     "the audit's request must not be null"},
    {"doAudit_access",
     {oddTable, oddShadowed},
     "call /shadow/doAudit chipMemory=/t first=0 count=1",
     "entrySize (6) must be a multiple of 4"},
    {"sentinel_size",
     {},
     "call /chip/sentinelIs address=0x2:000bfffc value=010203",
     "entrySize (3) must be a multiple of 4 for the access method identity"},
    {"access_write",
     {oddTable, oddShadowed, "let a = call chipAccessFactory shadow=/shadow chipMemory=/t"},
     "call /a/write entry=0 data=010203040506",
     "entrySize (6) must be a multiple of 4"},
    {"access_read",
     {oddTable, oddShadowed, "let a = call chipAccessFactory shadow=/shadow chipMemory=/t"},
     "call /a/read entry=0 entries=1",
     "entrySize (6) must be a multiple of 4"},
    {"writeRequest_state",
     {newRequest, newWriter},
     "set /r/state 7",
     "a request's state is 0 (idle), 1 (start) or 2 (stop), not 7"},
    {"writeRequest_start",
     {oddTable, oddShadowed, oddCleared, newRequest, ofOddTable, newWriter},
     "set /r/state 1",
     "entrySize (6) must be a multiple of 4"},
    {"writer_diff",
     {oddTable, oddShadowed, oddCleared, newRequest, ofOddTable, newWriter},
     "call /w/doDiff",
     "entrySize (6) must be a multiple of 4"},
    {"writer_leaveBuffered",
     {oddTable, oddShadowed, oddBuffered, oddCleared, newRequest, newWriter},
     "call /w/doLeaveBuffered chipMemory=/t",
     "entrySize (6) must be a multiple of 4"},
};

}  // namespace Breaks
