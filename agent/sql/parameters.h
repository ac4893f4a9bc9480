// Parameter lists as clients send them, and the values that statements and subroutines take.
#pragma once

#include <vector>

#include <nox/nox.h>

#include "agent/scripting/subroutine.h"
#include "agent/store/store.h"

namespace nox::agent {

/// A list may be absent, which counts as empty. A parameter's type, one of SqlType, says how its
/// bytes are meant: numbers as numbers, a blob as bytes, every other type as text. Throws Failure
/// 02/001 for a parameter that was never given a value, and 22/018 for a number that is none.
std::vector<SqlValue> valuesOf(noxp::ParameterListProt* parameters);

/// The same for a subroutine, to which all parameters are bytes; those never given are null.
std::vector<Argument> argumentsOf(noxp::ParameterListProt* parameters);

/// What a subroutine left of its parameters, with the types of the list that it was called with.
noxp::ACEBinaryFormatParameterListProt parametersOf(const std::vector<Argument>& arguments,
                                                    noxp::ParameterListProt* calledWith);

}  // namespace nox::agent
