#ifndef QUOREL_HOST_POSTGRES_SQLCALL_H
#define QUOREL_HOST_POSTGRES_SQLCALL_H

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/callframe.h"
#include "host/postgres/bridge.h"
#include "host/postgres/safenames.h"

namespace host {

/// One call from SQL, as bridge.h has it. The first refusal stays, and leaves the rest undone.
class SqlCall {
  public:
    /// All three outlive it.
    SqlCall(const Procedure& procedure, const QuorelSettings& settings, const QuorelServer& server);
    SqlCall(const SqlCall&) = delete;
    SqlCall& operator=(const SqlCall&) = delete;

    void give(int argument, const char* bytes, std::size_t length);
    void give_number(int argument, std::int32_t value);
    QuorelOutcome run();

    [[nodiscard]] std::uint64_t expected_size() const;
    [[nodiscard]] const std::string& message() const { return _message; }
    [[nodiscard]] const std::string& hint() const { return _hint; }
    [[nodiscard]] const std::string& warning() const { return _frame->warning(); }

    /// After QUOREL_DONE.
    [[nodiscard]] const std::optional<Value>& result() const { return _frame->result(); }
    /// The value of OUT parameter `index`, from 0.
    [[nodiscard]] const std::optional<Value>& out(int index) const {
        return _frame->out(_outs + static_cast<std::uint32_t>(index));
    }
    [[nodiscard]] const Procedure& procedure() const { return _procedure; }

  private:
    void _refuse(QuorelOutcome why, std::string words, std::string what_to_do = {});
    [[nodiscard]] std::uint32_t _next_number(int argument);
    void _guard_files();
    void _guard_file(std::uint32_t number);
    [[nodiscard]] bool _writes_something() const;
    bool _call_in_process();

    const Procedure& _procedure;
    const QuorelSettings& _settings;
    const QuorelServer& _server;
    const std::vector<std::uint32_t> _numbers;  // of the SQL arguments' parameters
    const std::uint32_t _outs;                  // the first OUT parameter
    QuorelOutcome _outcome = QUOREL_DONE;
    std::string _message;
    std::string _hint;

    SafeNames _names;
    std::shared_ptr<const Engine> _engine;
    std::optional<CallFrame> _frame;  // none: there is no engine

    std::uint32_t _repeated = 0;  // values given for the last parameter
    std::vector<std::optional<std::string_view>> _given;
    std::string _file;  // that the call reads; empty: none
};

}  // namespace host

#endif
