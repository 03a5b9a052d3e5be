// A task as the reference file declares it: its command, the parameters that a request gives and the command takes in,
// and what its return codes mean. Read-only once loaded; requests expand it side by side.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "exec/ReturnCodeListElement.h"
#include "foundation/List.h"

class TaskParameter : public ListElement {
  public:
    // Null texts count as missing ones. `quote` "true", "doublequote" or missing: values are put in double quotes. Without
    // a start delimiter a value begins where the search for it does; without an end delimiter it goes to the request's end.
    TaskParameter(const char* name, const char* defaultValue, const char* quote, const char* startDelim,
                  const char* endDelim, const char* overlapDelim);

    const char* getName() const { return name_.c_str(); }
    const char* getStartDelim() const { return startDelim_.c_str(); }
    const char* getEndDelim() const { return endDelim_.c_str(); }
    bool canOverlapPreviousDelim() const { return overlaps_; }
    const char* getDefaultValue() const { return default_.c_str(); }
    const char* getQuote() const { return quote_.c_str(); }  // empty where it is missing
    bool isQuoted() const;

    // The text as it goes into the command: quoted where the parameter is, as it stands otherwise. Kept: in double quotes
    // the shell still expands `$` and back quotes, unless the correction "task-quoting" is on.
    std::string quoted(std::string_view text) const;
    // Puts a value (null: the default) at each place of the buffer where the parameter's name stands. A value that holds
    // the name itself is not expanded again; an empty name has no place. Four double quotes put nothing. False, traced,
    // and the buffer as it was, if it would get longer than kLongestCommand.
    bool addParameterToCommandBuffer(std::string* buffer, const std::string* value) const;
    static constexpr std::size_t kLongestCommand = 16 << 20;  // bytes
    // What is put in the command's place of it; null: the default.
    std::string_view textToPut(const std::string* value) const;

  private:
    std::string name_, startDelim_, endDelim_;
    bool overlaps_;
    std::string quote_;
    std::string default_;
};

class TaskElement : public ListElement {
  public:
    // Null texts count as empty ones, but a missing friendly name as the key.
    TaskElement(const char* key, const char* command, const char* friendlyName);
    ~TaskElement() override;

    const char* getTaskName() const { return name_.c_str(); }  // the `key`: what a request begins with
    const char* getCommand() const { return command_.c_str(); }
    const char* getFriendlyName() const { return friendlyName_.c_str(); }
    void addParameter(std::unique_ptr<TaskParameter> parameter);
    void addReturnCode(std::unique_ptr<ReturnCodeListElement> code);
    const std::vector<std::unique_ptr<TaskParameter>>& parameters() const { return parameters_; }
    ListCursor getReturnCodeListCursor() const;

    // The command with the values of the request's parameters in it; nothing, traced, if the request lacks one or the
    // command gets too long. A pure function of the element and the request.
    // Kept: the parameters take their places one after the other, so the name of a later one is also found in the value of
    // an earlier one, unless the correction "task-quoting" is on.
    std::optional<std::string> getTaskCommand(std::string_view request) const;
    // The request that gives the parameters these values, one for each, in their order; null and empty stand for the
    // default. Nothing, with the reason in `why`, if the delimiters cannot carry them.
    std::optional<std::string> composeRequest(const std::vector<const char*>& values, std::string* why) const;

  private:
    // What stands between each parameter's delimiters; nothing if the request lacks one.
    std::optional<std::vector<std::string_view>> valuesIn(std::string_view request) const;
    // The command with all parameters put in at once; nothing if it gets too long.
    std::optional<std::string> expandOnce(const std::vector<const std::string*>& values) const;

    std::string name_, command_, friendlyName_;
    std::vector<std::unique_ptr<TaskParameter>> parameters_;
    std::vector<std::unique_ptr<ReturnCodeListElement>> codes_;  // chained in the order of the file
};
