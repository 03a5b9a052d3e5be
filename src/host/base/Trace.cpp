#include "host/base/Trace.h"

#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>

#include "host/base/Secrets.h"
#include "host/base/TraceLog.h"
#include "host/base/TraceSelection.h"
#include "platform/zsb.h"
#include "platform/ztr.h"

namespace almanac::host {
namespace {

constexpr std::size_t kDumpLimit = 4096;
constexpr std::size_t kMessageLimit = kTraceLineLimit - 1;

// Lays a record out and hands the line on. base_sink's mutex guards the log.
class Sink final : public spdlog::sinks::base_sink<std::mutex> {
  public:
    Sink() {
        formatter_ = std::make_unique<spdlog::pattern_formatter>("%Y-%m-%d %H:%M:%S.%e %t %s:%# %! %v");
    }

    void configure(TraceLogSettings settings, std::int64_t fileSize) {
        const std::lock_guard<std::mutex> hold(mutex_);
        log_.configure(std::move(settings), fileSize);
        configured_ = true;
    }

    std::uint64_t dropped() {
        const std::lock_guard<std::mutex> hold(mutex_);
        return log_.dropped();
    }

  protected:
    void sink_it_(const spdlog::details::log_msg& message) override {
        if (!configured_) {
            configured_ = true;
            const char* const value = ZSV1_GetEnv("ZSB_ZTR1_LOG");
            log_.configure(TraceLogSettings::parse(value ? value : ""));
        }
        spdlog::memory_buf_t line;
        formatter_->format(message, line);
        if (line.size() > static_cast<std::size_t>(kTraceLineLimit)) {
            static constexpr std::string_view kCut = "...\n";
            std::size_t end = static_cast<std::size_t>(kTraceLineLimit) - kCut.size();
            while (end > 0 && (line[end] & 0xC0) == 0x80) --end;  // never inside a UTF-8 character
            line.resize(end);
            line.append(kCut.data(), kCut.data() + kCut.size());
        }
        log_.write({line.data(), line.size()});
    }
    void flush_() override {}  // nothing is held back: a line is written before the call returns

  private:
    TraceLog log_;
    bool configured_ = false;
};

struct Tracer {
    std::mutex mutex;       // of the selection and the list of units
    bool selected = false;  // the selection has been set or read from the environment
    TraceSelection selection;
    ZTR1_Unit* units = nullptr;
    std::shared_ptr<Sink> sink = std::make_shared<Sink>();
    spdlog::logger logger{"trace", sink};

    Tracer() {
        logger.set_level(spdlog::level::trace);
        logger.set_error_handler([](const std::string&) {});
    }
};

Tracer& tracer() {
    static Tracer* const one = new Tracer;  // outlives static destruction: threads trace until the very end
    return *one;
}

void writeLine(const ZTR1_Unit* unit, int line, unsigned traceClass, const std::string& message) {
    char letter = 'D';
    if (traceClass & ZTR1_ERROR) {
        letter = 'E';
    } else if (traceClass & ZTR1_FLOW) {
        letter = 'F';
    } else if (traceClass & ZTR1_STATE) {
        letter = 'S';
    }
    std::string text;
    text.reserve(message.size() + 2);
    text += letter;
    text += ' ';
    text += message;
    timespec now{};
    ZSV1_GetTime(&now);
    const auto since = std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
    const spdlog::log_clock::time_point time(std::chrono::duration_cast<spdlog::log_clock::duration>(since));
    const auto level = letter == 'E' ? spdlog::level::err : spdlog::level::debug;
    tracer().logger.log(time, spdlog::source_loc{unit->file, line, unit->function}, level,
                        spdlog::string_view_t(text.data(), text.size()));
}

// Escapes control bytes (C0, DEL, and C1 as they are written in UTF-8), so that a message stays one line and
// cannot steer a terminal. Stops at the limit of a line.
std::string escaped(std::string_view text) {
    std::string out;
    out.reserve(std::min(text.size(), kMessageLimit) + 8);
    for (std::size_t i = 0; i < text.size() && out.size() < kMessageLimit; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        const bool c1 =
            c == 0xC2 && i + 1 < text.size() && (static_cast<unsigned char>(text[i + 1]) & 0xE0) == 0x80;
        if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c < 0x20 || c == 0x7F || c1) {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02x", c1 ? static_cast<unsigned char>(text[++i]) : c);
            out += hex;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

// Formats at most `limit` bytes of a message; `*whole` tells whether that was all of it.
std::string formatted(const char* format, va_list arguments, std::size_t limit, bool* whole) {
    char small[512];
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(small, sizeof small, format, arguments);
    std::string text;
    *whole = true;
    if (length < 0) {
        text = std::string("(unprintable) ") + format;
    } else if (static_cast<std::size_t>(length) < sizeof small) {
        text.assign(small, static_cast<std::size_t>(length));
    } else {
        *whole = static_cast<std::size_t>(length) <= limit;
        text.resize(std::min(static_cast<std::size_t>(length), limit) + 1);
        std::vsnprintf(text.data(), text.size(), format, again);
        text.pop_back();
    }
    va_end(again);
    return text;
}

void selectFromEnvironment(Tracer& one) {
    if (one.selected) return;
    one.selected = true;
    const char* const value = ZSV1_GetEnv("ZSB_ZTR1");
    std::string error;
    if (value && !TraceSelection::parse(value, &one.selection, &error)) {
        std::fprintf(stderr, "ZSB_ZTR1: %s; tracing errors only\n", error.c_str());
    }
}

}  // namespace

bool configureTrace(const std::string& spec, std::string* error) {
    try {
        TraceSelection selection;
        if (!TraceSelection::parse(spec, &selection, error)) return false;
        Tracer& one = tracer();
        const std::lock_guard<std::mutex> hold(one.mutex);
        one.selected = true;
        one.selection = std::move(selection);
        for (ZTR1_Unit* unit = one.units; unit; unit = unit->next) {
            unit->mask.store(one.selection.maskFor(unit->file, unit->function), std::memory_order_relaxed);
        }
        return true;
    } catch (...) {
        return false;
    }
}

std::string traceSpec() {
    Tracer& one = tracer();
    const std::lock_guard<std::mutex> hold(one.mutex);
    selectFromEnvironment(one);
    return one.selection.text().empty() ? "ERROR" : one.selection.text();
}

void configureTraceLog(const std::string& settings, std::int64_t fileSize) {
    try {
        tracer().sink->configure(TraceLogSettings::parse(settings), fileSize);
    } catch (...) {  // no memory: lines go where they went
    }
}

std::uint64_t traceLinesDropped() { return tracer().sink->dropped(); }

}  // namespace almanac::host

using namespace almanac::host;

unsigned ZTR1_Sync(ZTR1_Unit* unit) {
    try {
        Tracer& one = tracer();
        const std::lock_guard<std::mutex> hold(one.mutex);
        unsigned mask = unit->mask.load(std::memory_order_relaxed);
        if ((mask & ZTR1_UNSYNCED) == 0) return mask;  // another thread has registered it
        selectFromEnvironment(one);
        unit->next = one.units;
        one.units = unit;
        mask = one.selection.maskFor(unit->file, unit->function);
        unit->mask.store(mask, std::memory_order_relaxed);
        return mask;
    } catch (...) {
        return 0;
    }
}

void ZTR1_Event(ZTR1_Unit* unit, int line, ZTR1_EventKind kind) {
    try {
        writeLine(unit, line, ZTR1_FLOW, kind == ZTR1_ENTRY ? "Entry" : "Exit");
    } catch (...) {  // no memory for a line: it is lost
    }
}

void ZTR1_Printf(ZTR1_Unit* unit, int line, unsigned traceClass, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    try {
        const int kept = errno;  // a trace changes nothing, not even for %m's sake
        const std::size_t longest = longestSecret();
        bool whole = true;
        std::string text = formatted(format, arguments, kMessageLimit + longest, &whole);
        if (longest > 0) text = maskSecrets(text, whole ? text.size() : kMessageLimit);
        if (!text.empty() && text.back() == '\n') text.pop_back();
        writeLine(unit, line, traceClass, escaped(text));
        errno = kept;
    } catch (...) {  // no memory for a line: it is lost
    }
    va_end(arguments);
}

void ZTR1_Dump(ZTR1_Unit* unit, int line, unsigned traceClass, const char* title, const void* data,
               int length) {
    if (!data || length < 0) length = 0;
    try {
        const std::size_t shown = std::min(static_cast<std::size_t>(length), kDumpLimit);
        std::string bytes(static_cast<const char*>(data ? data : ""), shown);
        if (const std::size_t longest = longestSecret(); longest > 0) {
            const std::size_t seen = std::min(static_cast<std::size_t>(length), kDumpLimit + longest);
            bytes = maskSecrets({static_cast<const char*>(data ? data : ""), seen}, shown);
        }
        std::string text = escaped(title ? title : "");
        text += ": " + std::to_string(length) + " bytes";
        char hex[4];
        for (const char byte : bytes) {
            std::snprintf(hex, sizeof hex, " %02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
            text += hex;
        }
        if (shown < static_cast<std::size_t>(length)) text += " ...";
        writeLine(unit, line, traceClass, text);
    } catch (...) {  // no memory for a line: it is lost
    }
}
