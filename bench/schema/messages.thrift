namespace cpp nox.bench.th

struct ReadRecord {
  1: i32 mode,
  2: string fileName,
  3: string recordId,
}

struct WriteRecord {
  1: i32 mode,
  2: string fileName,
  3: string recordId,
  4: binary record,
}

struct KeyList {
  1: list<string> keys,
}

struct Row {
  1: list<binary> values,
}

struct RowSet {
  1: list<Row> rows,
}
