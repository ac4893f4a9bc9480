#include "tests/agent/wire/shared_noxd.h"

namespace nox::agent::test {

std::unique_ptr<NoxdProcess> SharedNoxd::noxd_;
std::unique_ptr<Client> SharedNoxd::ann_;
std::unique_ptr<Client> SharedNoxd::bob_;
int SharedNoxd::files_ = 0;

void SharedNoxd::SetUpTestSuite() {
  noxd_ = std::make_unique<NoxdProcess>();
  noxd_->set("session.lock_wait", "0").start();
  ann_ = newClient();
  bob_ = newClient();
}

void SharedNoxd::TearDownTestSuite() {
  ann_.reset();
  bob_.reset();
  EXPECT_EQ(noxd_->stop(), 0);
  noxd_.reset();
}

SharedNoxd::SharedNoxd() { EXPECT_NE(ann().run(("CREATE-FILE " + file_).c_str()), "IE/011"); }

SharedNoxd::~SharedNoxd() {
  for (Client* const client : {ann_.get(), bob_.get()}) {
    client->rollback();
    client->release(2);
    client->set("LOCK_WAIT", "0");
  }
}

std::unique_ptr<Client> SharedNoxd::newClient() {
  auto client = std::make_unique<Client>(noxd_->plainPort());
  client->logIn();
  return client;
}

void SharedNoxd::letWait(Client& client) { EXPECT_EQ(client.set("LOCK_WAIT", "30"), "OK"); }

}  // namespace nox::agent::test
