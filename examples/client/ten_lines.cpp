#include <nox/client/client.h>
#include <iostream>

int main() try {
  nox::client::Connection db = nox::client::Connection::open();  // where NOX_URI says
  nox::client::File orders = db.file("ORDERS");
  orders.write("2", nox::client::Record{"Bob", "9900", "tea"});
  for (const auto& row : db.query("SELECT ID, NAME FROM ORDERS WHERE TOTAL > ?", {50})) {
    std::cout << row["ID"].text() << " " << row["NAME"].text() << "\n";
  }
} catch (const nox::client::Error& error) {
  std::cerr << error.what() << "\n";
  return 1;
}
