#include "messaging/features/ParserReply.h"

#include "frame/status/Files.h"
#include "messaging/features/FeatureCall.h"
#include "messaging/features/JobContext.h"
#include "messaging/features/Parser.h"

namespace Morvu {

StatusCode ReplyTable(const FeatureCall& call, JobContext& context, const Parser& parser,
                      std::string_view name) {
  const auto code = parser.GetErrorCode();
  if (code != Status::Completed) return code;
  const auto file = call.arguments.GetText(kFileArgument);
  if (!file.empty()) {
    return call.face.Save(parser.GetTable(), file) ? code : Status::FileNotWritten;
  }
  AddToReply(context, parser.ToXml(false), name);
  return code;
}

void AddToReply(JobContext& context, std::unique_ptr<XmlMessaging::List> table,
                std::string_view name) {
  if (context.reply == nullptr) return;
  if (!name.empty()) table->SetAttribute("name", name);
  table->SetAttribute("direction", "o");
  context.reply->lists.push_back(std::move(table));
}

}  // namespace Morvu
