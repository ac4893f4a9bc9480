// What a program does with the client library, as far as that goes without a server.
#include <nox/client/client.h>

#include <cstdio>
#include <string>

namespace {

bool check(bool holds, const char* what) {
  if (!holds) std::fprintf(stderr, "client_consumer: %s\n", what);
  return holds;
}

bool changesRecords() {
  nox::client::Record record{"Smith", "Oslo"};
  record[3][2] = "x";
  return check(record.toString() == "Smith^Oslo^]x", "a record is not what was assigned");
}

bool readsUris() {
  const auto options =
      nox::client::Options::fromUri("nox://ann@[::1]:7000/MAIN?connect_timeout=1s");
  return check(options.user == "ann" && options.hosts[0].port == 7000, "a URI is read otherwise");
}

bool catchesByClass() {
  try {
    nox::client::Connection::open("nox://ann@127.0.0.1?no_such_key=1");
  } catch (const nox::client::Error& error) {
    return check(error.outcome() == nox::client::Outcome::NotSent, "another outcome than NotSent");
  }
  return check(false, "an unknown key passes");
}

}  // namespace

int main() { return changesRecords() && readsUris() && catchesByClass() ? 0 : 1; }
