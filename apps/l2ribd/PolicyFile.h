// PolicyFile.h: the operator's decisions about the merge, from a JSON file.
//
//   {"preferences": {"bgp": 150, "mlag": 90}, "ownVtep": "10.0.0.1", "multihomed": ["po1"]}
#pragma once

#include "agent/Elect.h"

// Raises the range exception, with file and place, for what cannot be read or is wrong anywhere. root: where the
// producers keep the names of interfaces.
Agent::Policy readPolicy(const Quil::String& path, const Quil::String& root);
