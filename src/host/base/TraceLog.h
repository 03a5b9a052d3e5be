// The file (or standard error) that trace lines go to, in the form of ZSB_ZTR1_LOG:
//
//   PATH/BASE-.SUFFIX INVENTORY=FILE COUNT=03 LIMIT=1 PRESERVE=0 MAXFILES=10
//
// perhaps wholly in double quotes. The number of a file goes between "-" and ".": BASE-01.SUFFIX and so on.
// In the name, "(systask)" stands for the program's name and "(sysutcstart)" for the start in hexadecimal
// seconds of UTC.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace almanac::host {

struct TraceLogSettings {
    std::string stem;       // path up to and including "-"; empty for standard error
    std::string suffix;     // from "." on
    std::string inventory;  // empty for none
    int count = 3;          // files in rotation, 1 to 99
    int limit = 1;          // size of a file in mebibytes, 1 to 1024
    int preserve = 0;       // how many of the first files of a run are not written over, below count
    int maxFiles = 10;      // files of all runs that the inventory keeps, 1 to 1000

    // Never fails: an option that is unknown or no number in its range is passed over, and a path without
    // "-." gets its number before the last "." of the file name, or at its end.
    static TraceLogSettings parse(const std::string& text);

    std::string fileName(int number) const;
};

// Not thread-safe: its owner serialises. A line that cannot be written is counted and dropped; when lines can
// be written again, the first says how many were lost. Never blocks on a pipe nobody reads.
class TraceLog {
  public:
    TraceLog() = default;
    ~TraceLog();
    TraceLog(const TraceLog&) = delete;
    TraceLog& operator=(const TraceLog&) = delete;

    // Ends the present file and takes other settings; nothing is opened before the first line. `fileSize`
    // overrides the limit in bytes when above 0.
    void configure(TraceLogSettings settings, std::int64_t fileSize = 0);

    // Writes one line, line feed included.
    void write(std::string_view line);

    std::uint64_t dropped() const { return dropped_; }

  private:
    bool ensureOpen();
    bool openNumber(int number, bool truncate);
    int firstNumber() const;
    void rotate();
    void updateInventory(const std::string& path) const;
    bool writeFile(std::string_view line);
    void writeStandardError(std::string_view line);
    bool writeAll(int fd, std::string_view text);
    void closeFile();

    TraceLogSettings settings_;
    std::int64_t fileLimit_ = 0;
    int fd_ = -1;
    int number_ = 0;
    std::int64_t size_ = 0;
    bool started_ = false;       // a file of this run has been open
    bool failed_ = false;        // the file could not be opened; standard error serves
    bool torn_ = false;          // the last line was cut by a full disk
    bool stalled_ = false;       // standard error took nothing the last time
    std::uint64_t dropped_ = 0;  // in all
    std::uint64_t unreported_ = 0;
};

// The inventory's text after `path` was opened: `path` last, at most `maxFiles` lines; what fell out goes to
// `removed`, oldest first. Pure.
std::string inventoryWith(const std::string& inventory, const std::string& path, int maxFiles,
                          std::vector<std::string>* removed);

}  // namespace almanac::host
