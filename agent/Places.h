// Places.h: where the agent and its sources meet under the root.
//
//   l2rib/input/NAME/           a source's directory: its tables, and the socket on which it shows its SourceDirEntry
//   l2rib/output/               the merged tables
//   l2rib/agent/                what the agent keeps over a restart, and the sockets on which it shows the merged
//                               directory, flood sets, status and configuration, and answers questions
#pragma once

namespace Agent::Places {

constexpr const char* inputs = "l2rib/input";
constexpr const char* output = "l2rib/output";
constexpr const char* agent = "l2rib/agent";

constexpr const char* announcement = "announce";  // socket of a source: a SourceDirEntry

constexpr const char* sources = "sources";       // sockets of the agent: AgentSourceDir
constexpr const char* floodSets = "flood-sets";  // FloodSetOutput
constexpr const char* status = "status";         // PolicySmStatus
constexpr const char* config = "config";         // Config
constexpr const char* questions = "ask";         // what it is asked, and answers

}  // namespace Agent::Places
