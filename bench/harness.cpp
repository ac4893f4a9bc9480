#include "bench/harness.h"

namespace nox::bench {

Suite makeSuite(const Workloads& data) {
  Suite suite(data);
  addLimit(suite);
  addNox(suite);
  addProtobuf(suite);
  addCereal(suite);
  addBoost(suite);
  addMsgpack(suite);
  addCapnproto(suite);
  addFlatbuffers(suite);
  addThrift(suite);
  return suite;
}

}  // namespace nox::bench
