// How a parser's table reaches a host that ran it as a method.
#pragma once

#include <memory>
#include <string_view>

#include "frame/StatusCode.h"
#include "messaging/XmlMessaging.h"

namespace Morvu {

class Parser;
struct FeatureCall;
struct JobContext;

// The argument that names a file for what is read.
inline constexpr std::string_view kFileArgument = "file";

// Saves the table of a good run as CSV where the call names a file, else adds it to the reply
// as a List of this name. The run's code; 122 where the file could not be written.
StatusCode ReplyTable(const FeatureCall& call, JobContext& context, const Parser& parser,
                      std::string_view name);

// Adds a table to the reply, where there is one, under this name; an empty one leaves its own.
void AddToReply(JobContext& context, std::unique_ptr<XmlMessaging::List> table,
                std::string_view name);

}  // namespace Morvu
