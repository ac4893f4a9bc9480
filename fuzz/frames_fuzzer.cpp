// The frame reader, with one class per kind of field and a few of the library's own.
#include "fuzz/factory_fuzzer.h"
#include "fuzz/page.h"
#include "nox/protocol/common_messages.h"
#include "nox/protocol/parameter_list.h"
#include "nox/protocol/sql_ext_error.h"
#include "nox/protocol/status_replies.h"
#include "tests/core/samples.h"
#include "tests/support/frames.h"

nox::ObjectFactory& nox::fuzz::factoryUnderTest() {
  static test::Classes<test::Pair, test::Text, test::Bytes, test::Nulls, test::Holder,
                       test::Anything, test::Everything, test::Ask, Page, OKResponseProt,
                       ErrorResponseProt, SQLExtError, noxp::ACEBinaryFormatParameterListProt,
                       noxp::common::EchoRequestProt, noxp::common::EchoResponseProt>
      factory;
  return factory;
}
