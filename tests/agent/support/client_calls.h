// The requests of a client as calls, and their answers as short texts that a test can compare.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <nox/nox.h>

namespace nox::agent::test {

/// The class and subclass of an error reply, "IE/008"; with the status of its message behind it
/// where it has one: "25/000 fffffffa". Empty for a reply that is no error.
std::string errorOf(const Serializable& reply);
/// The message of an error reply; empty for another.
std::string messageOf(const Serializable& reply);

/// A select list as a text: its id, its keys, a record behind its key where there is data (null as
/// "-"), and the positions that are modified: "1: A=alpha B=- [2]". A list that is none: "none".
std::string describe(noxp::remote::SelectListProt* list);

/// Speaks for one session; how requests get there is the subclass's.
///
/// Answers read: "OK" for the replies that carry nothing, the status and the
/// record in quotes for a ToviResponseProt ("0 'body'"), what `errorOf` says for an error.
class ClientCalls {
public:
  virtual ~ClientCalls();

  /// The reply, never null.
  virtual std::unique_ptr<Serializable> ask(noxp::RequestProt& request) = 0;
  /// The reply as a text.
  std::string say(noxp::RequestProt& request);
  std::string say(noxp::RequestProt&& request) { return say(request); }
  /// The reply, which must be of this class: else null, and a failure that names what it was.
  template <class Reply>
  std::unique_ptr<Reply> askFor(noxp::RequestProt& request) {
    std::unique_ptr<Serializable> answer = ask(request);
    auto* const wanted = dynamic_cast<Reply*>(answer.get());
    if (wanted) {
      answer.release();
    } else {
      failOn(*answer);
    }
    return std::unique_ptr<Reply>(wanted);
  }

  std::string open(const char* file);
  std::string closeFile(const char* file);
  std::string clear(const char* file);
  std::string read(const char* file, const char* id, int mode = 0);
  std::string write(const char* file, const char* id, std::string_view body, int mode = 0);
  std::string remove(const char* file, const char* id);
  std::string exists(const char* file, const char* id);
  std::string release(int mode, const char* file = "", const char* id = "");
  std::string common(const char* name);

  /// Version 0 is that of a client that does not fetch.
  std::string select(const char* file, int version = 1);
  std::string fetch(int list, int direction, unsigned long size, bool withRecords = false,
                    noxp::remote::SelectListProt* modified = nullptr);
  /// The chunk itself, so that it can be changed and committed.
  std::unique_ptr<noxp::remote::SelectListFetchResponseProt> fetchChunk(int list, int direction,
                                                                        unsigned long size);
  std::string commitList(noxp::remote::SelectListProt& list);
  std::string closeList(int list);

  std::string begin();
  std::string commit();
  std::string rollback();

  std::string xaStart(const char* id, int format = 1);
  std::string xaEnd(const char* id, int format = 1);
  std::string xaPrepare(const char* id, int format = 1);
  std::string xaCommit(const char* id, int format = 1);
  std::string xaRollback(const char* id, int format = 1);

  /// Sets one property of the session.
  std::string set(const char* key, const char* value);
  /// Compiles and executes a statement: "OK", or what was wrong.
  std::string sql(const char* statement);
  /// A command line; its output with "|" for attribute marks.
  std::string run(const char* command);

private:
  static void failOn(const Serializable& answer);
};

/// Replaces the record of a key at `position` (from 1) as a client does.
void change(noxp::remote::SelectListProt& list, unsigned long position, std::string_view body);

}  // namespace nox::agent::test
