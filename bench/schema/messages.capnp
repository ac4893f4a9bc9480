@0xd2f1c0a6a9a4b3e1;

using Cxx = import "/capnp/c++.capnp";
$Cxx.namespace("nox::bench::cp");

struct ReadRecord {
  mode @0 :Int32;
  fileName @1 :Text;
  recordId @2 :Text;
}

struct WriteRecord {
  mode @0 :Int32;
  fileName @1 :Text;
  recordId @2 :Text;
  record @3 :Data;
}

struct KeyList {
  keys @0 :List(Text);
}

struct RowSet {
  rows @0 :List(Row);

  struct Row {
    values @0 :List(Data);
  }
}
