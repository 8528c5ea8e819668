// PolicyFile.h: the operator's decisions about the merge, from a JSON file.
//
//   {"preferences": {"bgp": 150, "mlag": 90}, "quotas": {"bgp": 100000},
//    "ownVtep": "10.0.0.1", "multihomed": ["po1"],
//    "duplicates": {"moves": 5, "seconds": 180, "action": "freeze", "recovery": 600}, "logEvery": 60}
#pragma once

#include "agent/Policy.h"

// Raises the range exception, with file and place, for what cannot be read or is wrong anywhere. root: where the
// producers keep the names of interfaces.
Agent::Policy readPolicy(const Quil::String& path, const Quil::String& root);
