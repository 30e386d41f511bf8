#pragma once

#include "agent/web/countgaps.h"
#include "agent/web/eventquestion.h"
#include "agent/web/reportask.h"

namespace zel {

// Writes the report: one file of HTML in which all that comes from events and people is text, and
// nothing runs or is fetched. For the thread of the question.
void WriteReport(QuestionWork& work, const CountContext& context, EventQuestion& question,
                 const ReportAsk& ask);

}  // namespace zel
