// Redis: GET of a value of 64 bytes, the shortest thing it does for a client.
#include <hiredis/hiredis.h>

#include <stdexcept>

#include "bench/agent/operation.h"

namespace {

struct Free {
  void operator()(redisContext* context) const { redisFree(context); }
  void operator()(redisReply* reply) const { freeReplyObject(reply); }
};

class Get : public Operation {
public:
  explicit Get(std::uint16_t port) : context_(redisConnect("127.0.0.1", port)) {
    if (!context_ || context_->err != 0) throw std::runtime_error("redis: cannot connect");
  }

  std::uint64_t run() override {
    const std::unique_ptr<redisReply, Free> reply(command("GET bench"));
    if (reply->type != REDIS_REPLY_STRING || reply->len != kEchoBytes) {
      throw std::runtime_error("redis: another value came back");
    }
    return 1;
  }

  void set(const std::string& value) {
    const std::unique_ptr<redisReply, Free> reply(static_cast<redisReply*>(
        redisCommand(context_.get(), "SET bench %b", value.data(), value.size())));
  }

private:
  redisReply* command(const char* text) {
    void* const reply = redisCommand(context_.get(), text);
    if (!reply) throw std::runtime_error("redis: no reply");
    return static_cast<redisReply*>(reply);
  }

  std::unique_ptr<redisContext, Free> context_;
};

}  // namespace

Contender redisGet(const Servers& servers) {
  return {"Redis GET", [port = servers.redisPort] { return std::make_unique<Get>(port); }};
}

void fillRedis(const Servers& servers) { Get(servers.redisPort).set(std::string(kEchoBytes, 'x')); }
