#include "agent/server/thread.h"

#include <system_error>
#include <utility>

namespace nox::agent {

namespace {

class Attributes {
public:
  explicit Attributes(std::size_t stackBytes) {
    pthread_attr_init(&attributes_);
    pthread_attr_setstacksize(&attributes_, stackBytes);
  }
  ~Attributes() { pthread_attr_destroy(&attributes_); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;

  const pthread_attr_t* get() const { return &attributes_; }

private:
  pthread_attr_t attributes_{};
};

}  // namespace

Thread::Thread(const char* name, std::size_t stackBytes, std::function<void()> body)
    : body_(std::move(body)) {
  const Attributes attributes(stackBytes);
  const int error = pthread_create(&thread_, attributes.get(), run, this);
  if (error != 0) throw std::system_error(error, std::system_category(), "no thread");
  pthread_setname_np(thread_, name);
}

Thread::~Thread() { pthread_join(thread_, nullptr); }

void* Thread::run(void* self) {
  static_cast<Thread*>(self)->body_();
  return nullptr;
}

}  // namespace nox::agent
