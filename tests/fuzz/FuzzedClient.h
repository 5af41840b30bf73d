// The IpmiClient of the fuzzers: every answer comes from the fuzz input. For each request, one
// byte (0: an answer arrives, anything else: the transport fails), the completion code, the data
// length and the data; once the input runs out, the transport fails.
#pragma once

#include "FuzzInput.h"

namespace fuzz {

void answerFrom(Input* input);

}  // namespace fuzz
