#include "tests/client/wire/noxd_session.h"

namespace nox::client::test {

using agent::test::NoxdProcess;

std::unique_ptr<NoxdProcess> NoxdSession::noxd_;
std::unique_ptr<Connection> NoxdSession::anns_;
std::unique_ptr<Connection> NoxdSession::bobs_;
int NoxdSession::files_ = 0;

Options optionsFor(const NoxdProcess& noxd) {
  Options options;
  options.hosts = {{"127.0.0.1", static_cast<std::uint16_t>(noxd.plainPort())}};
  options.user = NoxdProcess::kUser;
  options.password = NoxdProcess::kPassword;
  options.account = "MAIN";
  options.tls = Tls::Off;
  return options;
}

void NoxdSession::SetUpTestSuite() {
  noxd_ = std::make_unique<NoxdProcess>();
  noxd_->set("session.lock_wait", "0").start();
  anns_ = std::make_unique<Connection>(connect());
  bobs_ = std::make_unique<Connection>(connect());
}

void NoxdSession::TearDownTestSuite() {
  anns_.reset();
  bobs_.reset();
  EXPECT_EQ(noxd_->stop(), 0);
  noxd_.reset();
}

Options NoxdSession::options() { return optionsFor(*noxd_); }

NoxdSession::NoxdSession() { ann_.execute("CREATE-FILE " + fileName_); }

NoxdSession::~NoxdSession() {
  for (Connection* const used : {anns_.get(), bobs_.get()}) {
    if (!used->isAlive()) {
      *used = connect();
      continue;
    }
    used->releaseLocks();
    used->execute("CLEARSELECT");
    used->setProperties({{"LOCK_WAIT", "0"}, {"FETCH_SIZE", "1000"}, {"COMPRESS_THRESHOLD", "-1"}});
  }
}

std::string errorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const Error& error) {
    return error.sqlState() + ' ' + nameOf(error.outcome());
  }
  return "no error";
}

}  // namespace nox::client::test
