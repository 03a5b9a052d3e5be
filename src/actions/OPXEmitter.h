// Sends events to the event console through the calls of platform/rnq.h. On a host without that protocol every emitter
// fails at construction; the log monitor then goes on without it.
#pragma once

#include <string>

class OPXEmitter {
  public:
    // `confFile` is the adapter's configuration file. Kept: for a null one the error is 1 only until the handle fails
    // too, whose error then stands.
    explicit OPXEmitter(const char* confFile);
    virtual ~OPXEmitter();
    OPXEmitter(const OPXEmitter&) = delete;
    OPXEmitter& operator=(const OPXEmitter&) = delete;

    // A value of the adapter's configuration, null if it has none; the caller frees it. The platform's call gets the
    // name in a buffer of kValueSize bytes and, if it knows it, writes the value there and gives its length.
    char* getenv(const char* name);
    static constexpr int kValueSize = 4096;

    // What rnq_put_event gives: negative for a failure (also for a null text), 0 for an event filtered out.
    int sendEvent(const char* text);

    const char* getConfFile() const { return haveConfFile_ ? confFile_.c_str() : nullptr; }
    // 0 well; 1 no such file, 2 an invalid one, 3 one that may not be read, 4 anything else.
    int getError() const { return error_; }
    int preFilter(char*, int, char*, char*) { return 0; }

  private:
    std::string confFile_;
    bool haveConfFile_;
    int handle_ = 0;
    int error_ = 0;
};
