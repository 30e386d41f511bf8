#pragma once

#include <cpprest/json.h>

#include "zelstore/ieventstore.h"

namespace zel {

// For a person whose question, which found nothing, ran through: says "no events", and what of the
// question makes that likely, as far as the document and a few short questions to `store` tell: a
// path that is compared as a whole, a registry root that sensors write in several ways, a time
// range in which the store holds nothing. Only guesses: beyond "no events" it says nothing where
// nothing is likely. `document` has passed CheckDocument. The store's table of errors is empty
// afterwards, as the failures of these few questions are none of the person's. A null `store` is
// asked nothing.
void TellNothingFound(const web::json::value& document, ZEL::IEventStore* store);

}  // namespace zel
