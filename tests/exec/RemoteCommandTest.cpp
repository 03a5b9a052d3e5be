// Commands that run through a connector, which here answers what the test says.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <future>
#include <memory>
#include <string>

#include "exec/CommandWithTimeout.h"
#include "exec/CommandWithTimeoutList.h"

namespace {

class Connector : public RemoteExecutor {
  public:
    explicit Connector(int result, const char* text = nullptr) : result_(result), text_(text) {}
    ~Connector() override {
        if (destroyed) destroyed->set_value();
    }
    int executeScript(const ZBT::String& command, char** stdoutText, char**) override {
        commandSeen = command.c_str();
        if (hold.valid()) hold.wait();
        if (text_) *stdoutText = strdup(text_);
        return result_;
    }
    int status() const override { return 0; }
    int errorCode() const override { return result_; }
    void addCommandFile(const char*) override {}
    void addCommandFileList(List&) override {}
    List& commandFileList() override { return files_; }
    int disconnect() override { return 0; }

    std::string commandSeen;
    std::shared_future<void> hold;
    std::promise<void>* destroyed = nullptr;

  private:
    int result_;
    const char* text_;
    List files_;
};

}  // namespace

TEST(RemoteCommand, TheConnectorsResultIsTheReturnCode) {
    struct Case {
        int result;
        const char* text;
        int run;
        _CWTStatus status;
    } cases[] = {{0, "a\nb\n", 0, CWT_COMPLETE}, {0, nullptr, 0, CWT_COMPLETE}, {13, nullptr, 0, CWT_FAILED}, {-1, "x", -1, CWT_FAILED}};
    for (const Case& c : cases) {
        const auto connector = std::make_shared<Connector>(c.result, c.text);
        CommandWithTimeout run(connector, "df -k", 20, "A=1 export A;");
        EXPECT_EQ(run.runCommand(), c.run);
        EXPECT_EQ(run.getRC(), c.result);
        EXPECT_EQ(run.getStatus(), c.status);
        EXPECT_EQ(connector->commandSeen, "df -k") << "no prefix reaches the other host";
        EXPECT_STREQ(run.getStdout(), c.text);
    }
}

TEST(RemoteCommand, AnObjectThatIsGivenUpIsDestroyedByItsWorkerWithItsConnector) {
    std::promise<void> release, destroyed;
    auto connector = std::make_shared<Connector>(0);
    connector->hold = release.get_future().share();
    connector->destroyed = &destroyed;
    CommandWithTimeoutList list;
    auto* run = new CommandWithTimeout(connector, "df", 0);
    EXPECT_EQ(run->runCommand(), 1);
    list.add(run);
    list.cleanupFinishedCommands();
    ASSERT_EQ(list.getCount(), 1);
    list.letGoOfAll();
    connector.reset();
    std::future<void> gone = destroyed.get_future();
    EXPECT_EQ(gone.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout) << "the worker is still inside";
    release.set_value();
    EXPECT_EQ(gone.wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

TEST(RemoteCommand, GivingUpAFinishedObjectDestroysItAtOnce) {
    for (int i = 0; i < 200; ++i) {
        std::promise<void> destroyed;
        auto connector = std::make_shared<Connector>(0);
        connector->destroyed = &destroyed;
        auto* run = new CommandWithTimeout(connector, "df", 0);
        connector.reset();
        // With no time at all the worker may be anywhere: not begun, inside, or done.
        if (run->runCommand() == 1) {
            if (i % 2) usleep(100);
            CommandWithTimeout::letGo(run);
        } else {
            delete run;
        }
        EXPECT_EQ(destroyed.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    }
}
