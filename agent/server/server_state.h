// What all connections of a server share.
#pragma once

#include <atomic>

#include "agent/agent_object_factory.h"
#include "agent/server/busy_wait.h"
#include "agent/session/agent.h"
#include "agent/session/dispatcher.h"

namespace nox::agent {

struct ServerState {
  enum class Phase { Serving, Draining, Stopping };

  ServerState(Agent& itsAgent, const Dispatcher& itsDispatcher)
      : agent(itsAgent), dispatcher(itsDispatcher) {}

  Agent& agent;
  const Dispatcher& dispatcher;
  LoginObjectFactory loginFactory;
  AgentObjectFactory agentFactory;
  std::atomic<Phase> phase{Phase::Serving};
  /// Counts reloads: connections then take the values of the configuration anew.
  std::atomic<unsigned int> generation{0};
  BusyWait::Traffic traffic;

  bool serving() const { return phase.load(std::memory_order_relaxed) == Phase::Serving; }
  bool stopping() const { return phase.load(std::memory_order_relaxed) == Phase::Stopping; }
};

}  // namespace nox::agent
