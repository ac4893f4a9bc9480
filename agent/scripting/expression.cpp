#include <memory>
#include <string>
#include <string_view>

#include "agent/scripting/lua_machine.h"
#include "agent/scripting/nox_functions.h"
#include "agent/scripting/subroutine.h"

namespace nox::agent {

namespace {

// For one record: some tens of milliseconds.
constexpr std::size_t kMostSteps = 1'000'000;

class LuaExpression final : public Expression {
public:
  LuaExpression(Session& session, std::string_view expression)
      : machine_(session, std::make_shared<LuaMemory>()) {
    machine_.failAs("IE", "011");
    addTextFunctions(machine_);
    // In one line, so that errors name line 1; a comment at the end takes the line with it.
    machine_.load("local id, record = ... return " + std::string(expression), "expression");
  }

  std::string evaluate(std::string_view id, std::string_view record) override {
    return machine_.call(id, record, kMostSteps);
  }

private:
  LuaMachine machine_;
};

}  // namespace

std::unique_ptr<Expression> makeExpression(Session& session, std::string_view expression) {
  return std::make_unique<LuaExpression>(session, expression);
}

}  // namespace nox::agent
