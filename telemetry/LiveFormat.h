// Where things are in the three files: offsets in bytes, as docs/formats.md has them.
#pragma once

#include <Zint/Types.h>

namespace Telemetry {

constexpr U32 headerBytes = 4096;
// Of a time by the clock on the wall; other times are in "seconds", by the clock of the object.
constexpr const char* wallClockUnit = "seconds since 1970";
constexpr U32 nameBytes = 64;  // the field; a name has at most 63

namespace LiveFormat {
constexpr char magic[] = "UMBRLIVE";
constexpr U32 majorVersion = 8;
constexpr U32 minorVersion = 12;
constexpr U32 headerSize = 16;
constexpr U32 schema = 20;
constexpr U32 schemaBytes = 24;
constexpr U32 tableCount = 28;
constexpr U32 fileBytes = 32;
constexpr U32 pid = 36;
constexpr U32 processStart = 40;
constexpr U32 bootId = 48;
constexpr U32 name = 64;
constexpr U32 socket = 128;
constexpr U32 adminSocket = 240;
constexpr U32 socketBytes = 112;
constexpr U32 startTime = 352;
constexpr U32 heartbeat = 512;
constexpr U32 tables = 1024;
constexpr U32 tableBytes = 64;
constexpr U32 maxTables = 32;
constexpr U32 tableNameBytes = 24;
// Words of the heartbeat's row.
constexpr U32 beatState = 1, beatMonotonic = 2, beatWallClock = 4, beatCount = 6, beatNotFit = 8,
              beatPointerBits = 9;
}  // namespace LiveFormat

namespace EventFormat {
constexpr char magic[] = "UMBREVNT";
constexpr U32 majorVersion = 8;
constexpr U32 minorVersion = 12;
constexpr U32 headerSize = 16;
constexpr U32 recordBytesAt = 20;
constexpr U32 records = 24;
constexpr U32 name = 64;
constexpr U32 counts = 512;
// Words of the row of counts.
constexpr U32 countsEvents = 2, countsSuppressed = 4, countsPid = 6;
constexpr U32 recordBytes = 256;
constexpr U32 recordWords = recordBytes / 4;
// Words of a record.
constexpr U32 kind = 1, number = 2, monotonic = 4, wallClock = 6, verdict = 8, nature = 9,
              entry = 10, entrySize = 11, uid = 12, pid = 13, region = 14, chip = 26, expected = 34,
              actual = 38, text = 42;
constexpr U32 regionBytes = 48, chipBytes = 32, valueBytes = 16, textBytes = 88;
}  // namespace EventFormat

namespace TraceFormat {
constexpr char magic[] = "UMBRTRAC";
constexpr U32 majorVersion = 8;
constexpr U32 minorVersion = 12;
constexpr U32 headerSize = 16;
constexpr U32 pid = 36;
constexpr U32 processStart = 40;
constexpr U32 bootId = 48;
constexpr U32 bootIdBytes = 16;
constexpr U32 name = 64;
constexpr U32 formats = 128, formatsSize = 132, firstEntry = 136;
constexpr U32 parts = 140, levels = 144, partsPerLevel = 148, partBytes = 152;
// Bytes from the beginning of a part, and what its records keep to.
constexpr U32 partBegin = 156, partEnd = 160, partCleared = 164, partRecords = 168,
              recordStarts = 172, unit = 176;
constexpr U32 row = 512;
// Words of the row.
constexpr U32 rowState = 1, rowMonotonic = 2, rowWallClock = 4, rowLeftOut = 6, rowFailures = 7;
// Bytes from the beginning of the formats; the first word is the bytes of entries.
constexpr U32 formatsLeftOut = 4;
}  // namespace TraceFormat

}  // namespace Telemetry
