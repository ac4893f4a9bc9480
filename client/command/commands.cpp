#include "client/command/commands.h"

#include "client/command/output/rows.h"

namespace nox::command {

std::string Arguments::get(std::string_view name, std::string_view otherwise) const {
  const auto found = values_.find(std::string(name));
  return std::string(found == values_.end() || found->second.empty() ? otherwise
                                                                     : found->second.front());
}

const std::vector<std::string>& Arguments::all(std::string_view name) const {
  static const std::vector<std::string> kNone;
  const auto found = values_.find(std::string(name));
  return found == values_.end() ? kNone : found->second;
}

const std::vector<OptionSpec>& commonOptions() {
  static const std::vector<OptionSpec> options = {
      {"--uri", "-u", "URI", "where to connect: nox://user@host:port/account?key=value", {}},
      {"--host", "-H", "HOST[:PORT]", "the server, instead of the URI's", {}},
      {"--user", "-U", "USER", "the user, instead of the URI's", {}},
      {"--account", "-A", "ACCOUNT", "the account, instead of the URI's", {}},
      {"--password-file",
       "",
       "FILE",
       "a file of mode 0600 whose first line is the password; else it is asked for",
       {},
       Names::LocalFile},
      {"--tls",
       "",
       "MODE",
       "whether to encrypt, and to verify who answers",
       {"verify-full", "insecure-no-verify", "off"},
       Names::Choice},
      {"--ca", "", "FILE", "certificates to trust (PEM)", {}, Names::LocalFile},
      {"--connect-timeout", "", "TIME", "for connecting and logging in: 500ms, 10s, 2m", {}},
      {"--timeout", "", "TIME", "for each request; 0s waits without end", {}},
      {"--format", "-f", "FORMAT", "how rows are printed; a table on a terminal, else tsv",
       formatNames(), Names::Choice},
      {"--no-header", "", "", "no heading above the rows", {}},
      {"--output",
       "-o",
       "FILE",
       "where the data goes, instead of standard output",
       {},
       Names::LocalFile},
      {"--color",
       "",
       "WHEN",
       "colours; automatic ones only on a terminal and without NO_COLOR",
       {"auto", "always", "never"},
       Names::Choice},
      {"--progress",
       "",
       "HOW",
       "reports of long work on standard error; auto shows a bar on a terminal",
       {"auto", "plain", "none"},
       Names::Choice},
  };
  return options;
}

const std::vector<OptionSpec>& programOptions() {
  static const std::vector<OptionSpec> options = {
      {"--script",
       "",
       "FILE",
       "run the statements of a file; - is standard input",
       {},
       Names::LocalFile},
      {"--echo", "", "", "print the statements of a script before what they give", {}},
      {"--help", "-h", "", "help, of the whole or of a subcommand", {}},
      {"--version", "", "", "the version", {}},
  };
  return options;
}

const std::vector<CommandSpec>& commands() {
  static const ArgumentSpec kFile = {"FILE", "a file, or \"DICT FILE\" for its dictionary"};
  static const OptionSpec kLock = {"--lock",
                                   "",
                                   "KIND",
                                   "take a lock with the record; it ends with the session",
                                   {"shared", "update"},
                                   Names::Choice};
  static const OptionSpec kNoWait = {
      "--no-wait", "", "", "do not wait for another session's lock", {}};
  static const std::vector<CommandSpec> table = {
      {"ping",
       "measure the way to the server and back",
       "Sends small echoes and prints how long each took.",
       {},
       {{"--count", "-n", "N", "how many echoes; 4 unless given", {}}},
       runPing},
      {"login",
       "log in and say to whom",
       "Connects, logs in, and prints what the server says about itself and the session.",
       {},
       {},
       runLogin},
      {"files",
       "list the account's files",
       "Prints the name of every file, one per row.",
       {},
       {},
       runFiles},
      {"create-file",
       "create a file",
       "Creates a file with an empty dictionary.",
       {{"FILE", "the name of the new file"}},
       {},
       runCreateFile},
      {"read",
       "read records",
       "Prints each record: on a terminal as a tree of attributes, values and subvalues, else in "
       "the "
       "format that was asked for (raw: its bytes; json: nested arrays). A record that is not "
       "there "
       "ends with status 1, after the others were printed.",
       {kFile, {"ID", "a record's id", true, true}},
       {{"--tree", "-t", "", "as a tree, also where the output is no terminal", {}},
        {"--text", "", "", "as text: ^ ] \\ for the marks, ~HH for what is not printable", {}},
        kLock,
        kNoWait},
       runRead},
      {"write",
       "write a record",
       "Writes a record. Its content is TEXT, in which ^ ] \\ stand for the marks between "
       "attributes, values and subvalues and ~HH for a byte; without TEXT, the bytes of FILE or of "
       "standard input as they are.",
       {kFile, {"ID", "the record's id"}, {"TEXT", "its content", false}},
       {{"--from", "", "PATH", "read the content from a file", {}, Names::LocalFile},
        {"--new", "", "", "only where there is no such record", {}},
        {"--keep-lock", "", "", "keep the session's lock on it", {}},
        {"--set",
         "-s",
         "PLACE=TEXT",
         "change one field of a record that is there instead: 3=x, 3.2=x, 3.2.1=x; TEXT stands "
         "there as it is, ^ ] \\ ~ in it are no marks; the record is locked meanwhile",
         {},
         Names::Nothing,
         true}},
       runWrite},
      {"delete",
       "delete records",
       "Deletes records. One that is not there ends with status 1, after the others were deleted.",
       {kFile, {"ID", "a record's id", true, true}},
       {},
       runDelete},
      {"exists",
       "test whether a record is there",
       "Ends with status 0 when the record is there, and with 1 when it is not. Prints nothing.",
       {kFile, {"ID", "the record's id"}},
       {},
       runExists},
      {"select",
       "print the ids that a selection gives",
       "Runs a selection and prints the ids, fetched page by page. CLAUSE are the words of the "
       "command language: WITH PRICE > 100 BY NAME.",
       {kFile, {"CLAUSE", "a clause of the selection", false, true}},
       {{"--records", "-r", "", "print the records beside their ids", {}},
        {"--sorted", "", "", "by id where BY says nothing else", {}},
        {"--page-size", "", "N", "ids per page", {}}},
       runSelect},
      {"sql",
       "run an SQL statement",
       "Runs a statement and prints its rows, fetched batch by batch; for one without rows, how "
       "many "
       "rows it changed goes to standard error. VALUE are bound to the question marks, in order; "
       "\\N is null.",
       {{"STATEMENT", "SQL text; \"-\" reads it from standard input"},
        {"VALUE", "a parameter", false, true}},
       {{"--fetch-size", "", "N", "rows per batch", {}}},
       runSql},
      {"run",
       "run a command line",
       "Runs a command of the command language and prints what it prints. What it asks for is "
       "asked "
       "on the terminal, or taken from --answer in order.",
       {{"COMMAND", "the command, in one or several words", true, true}},
       {{"--answer", "-a", "TEXT", "an answer to a question", {}, Names::Nothing, true},
        {"--rows", "", "", "as rows in the chosen format (LIST, SORT, SELECT, SSELECT)", {}}},
       runRun},
      {"call",
       "call a subroutine",
       "Calls a subroutine and prints its parameters as it left them, a row each. \\N is null.",
       {{"SUBROUTINE", "its name"}, {"VALUE", "a parameter", false, true}},
       {{"--answer", "-a", "TEXT", "an answer to a question", {}, Names::Nothing, true}},
       runCall},
      {"conv",
       "convert data by a conversion code",
       "Converts stored values into what people read, a row for each.",
       {{"CODE", "a conversion code: D4/, MD2, MTS"}, {"DATA", "a value", true, true}},
       {{"--input", "-i", "", "the other way: from what people write to what is stored", {}}},
       runConv},
      {"load",
       "load records from CSV, TSV or JSON lines",
       "Reads records from PATH, or from standard input, and writes them in batches, each of which "
       "is a transaction.\n\n"
       "JSON lines are {\"id\": \"...\", \"record\": [...]}: an array of attributes, each a text "
       "or "
       "an array of values, each a text or an array of subvalues. In CSV and TSV the first line "
       "names the columns: one is the id (\"ID\" or \"@ID\" unless --id names another), the others "
       "are items of the file's dictionary, or numbers of attributes; ^ ] \\ in their values stand "
       "for marks, and ~HH for a byte.\n\n"
       "What cannot be read or is refused ends the load, or goes to the reject file with the "
       "reason. "
       "With --resume, how many records are done is kept in a file after each batch, and a load "
       "that "
       "was broken off goes on behind them, unless its input begins with others.",
       {kFile, {"PATH", "where the records are", false, false, {}, Names::LocalFile}},
       {{"--from-format",
         "",
         "FORMAT",
         "what the input is; else told by the ending of its name",
         {"csv", "tsv", "jsonl"},
         Names::Choice},
        {"--id", "", "COLUMN", "the column with the ids", {}},
        {"--batch", "-b", "N", "records per transaction; 1000 unless given", {}},
        {"--reject", "", "PATH", "where what cannot be loaded goes", {}, Names::LocalFile},
        {"--resume", "", "PATH", "where to keep how far it is", {}, Names::LocalFile},
        {"--create", "", "", "create the file where there is none", {}}},
       runLoad},
      {"export",
       "print every record of a file",
       "Prints all records, page by page, as JSON lines that load reads unless another format is "
       "chosen. In csv, tsv and the other formats the columns are the ids and the attributes that "
       "have D items in the dictionary, of DICT FILE the attributes 1 to 6; how many records hold "
       "more than that is said at the end. --items chooses columns among the D items.",
       {kFile, {"CLAUSE", "a clause that selects records: WITH PRICE > 100", false, true}},
       {{"--items", "", "NAMES", "the columns, divided by commas", {}},
        {"--page-size", "", "N", "records per page", {}}},
       runExport},
      {"xa",
       "show and end branches of distributed transactions",
       "Lists the account's branches that are neither committed nor rolled back, or ends one. "
       "Needs "
       "the right admin for the list.",
       {{"ACTION",
         "what to do",
         true,
         false,
         {"list", "commit", "rollback", "start", "end", "prepare"},
         Names::Choice},
        {"FORMAT:ID", "the branch", false}},
       {},
       runXa},
      {"monitor",
       "ask the server about itself",
       "Runs a monitoring command (status, sessions, locks, lists, xa list, kill, unlock, version) "
       "and prints its rows. Needs the right admin.",
       {{"COMMAND", "the command and its arguments", true, true}},
       {},
       runMonitor},
      {"dump",
       "show what went over the wire",
       "Reads frames from PATH, or from standard input: raw bytes, hexadecimal text, or a capture "
       "of "
       "packets (pcap, pcapng) whose TCP streams are put together again. Prints each frame. Ends "
       "with status 1 when something was no frame.",
       {{"PATH", "where the frames are", false, false, {}, Names::LocalFile}},
       {{"--as",
         "",
         "FORM",
         "annotated bytes, a tree (unless told), XML, or JSON that encode reads",
         {"hex", "tree", "xml", "json"},
         Names::Choice},
        {"--passwords", "", "", "show passwords", {}},
        {"--most", "", "N", "bytes of a value to show in hex and tree; 256 unless given", {}}},
       runDump,
       false},
      {"encode",
       "make frames from JSON",
       "Reads messages as JSON from PATH, or from standard input, one per line, and writes their "
       "frames. The JSON is what dump --as json prints.",
       {{"PATH", "where the messages are", false, false, {}, Names::LocalFile}},
       {{"--hex", "", "", "as hexadecimal text, a frame per line", {}}},
       runEncode,
       false},
      {"bench",
       "measure the server's speed",
       "Repeats an operation on several connections and prints how many were done per second, and "
       "how long they took: the median, and what 99 of 100 stayed below. read and write use FILE, "
       "which is created, and deleted again.",
       {{"OPERATION", "what to do", false, false, {"ping", "read", "write"}, Names::Choice}},
       {{"--connections", "-c", "N", "how many at a time; 1 unless given", {}},
        {"--seconds", "", "N", "how long; 5 unless given", {}},
        {"--size", "", "BYTES", "of an echo or a record; 64 unless given", {}},
        {"--file", "", "FILE", "NOX.BENCH unless given", {}}},
       runBench},
      {"begin", "begin a transaction", "Begins a transaction.", {}, {}, runBegin, true, true},
      {"commit",
       "commit the transaction",
       "Commits the transaction.",
       {},
       {},
       runCommit,
       true,
       true},
      {"rollback",
       "roll the transaction back",
       "Rolls the transaction back.",
       {},
       {},
       runRollback,
       true,
       true},
      {"set",
       "set a property of the session",
       "Sets a property: LOCK_WAIT (seconds), FETCH_SIZE (rows), STATEMENT_TIMEOUT (seconds), "
       "COMPRESS_THRESHOLD (bytes), TIMEZONE, CLIENT_NAME, EMPTY_NULL.",
       {{"PROPERTY", "its name"}, {"VALUE", "its value"}},
       {},
       runSet,
       true,
       true},
      {"release",
       "give locks back",
       "Gives this session's lock on a record back; without ID those of the file, without FILE "
       "all.",
       {{"FILE", "a file", false}, {"ID", "the record's id", false}},
       {},
       runRelease,
       true,
       true},
  };
  return table;
}

const CommandSpec* findCommand(std::string_view name) {
  for (const CommandSpec& command : commands()) {
    if (name == command.name) return &command;
  }
  return nullptr;
}

}  // namespace nox::command
