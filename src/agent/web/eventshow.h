#pragma once

#include <string>

#include "agent/web/countgaps.h"
#include "agent/web/listrows.h"

// What is shown of one event. Each is for the thread of the question, and refuses where no event
// has that key.
namespace zel {

// The text of the event with that key.
std::optional<std::string> FindEventText(QuestionWork& work, const std::string& key);

// The event with all that was joined to it, as one object of JSON.
void AnswerEvent(QuestionWork& work, const CountContext& context, const std::string& key);

enum class AroundBy { process, correlation, time };
// The events next to it, as lines of a list; `ask` has everything but the moment and the test.
void AnswerAroundKey(QuestionWork& work, const CountContext& context, const std::string& key,
                     AroundBy by, AroundAsk ask);

// The process that it is about, those above it and those below, as one object of JSON.
void AnswerTree(QuestionWork& work, const CountContext& context, const std::string& key);

}  // namespace zel
