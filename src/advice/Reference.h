// What each failure means and where it usually comes from: for documents and tools, not for the
// library, which does not link this.
#pragma once

#include <span>

#include "advice/Advice.h"

namespace tv::advice {

// One row of the reference: causes that mean the same at this stage.
struct Explanation {
    Stage stage;
    Cause first;
    Cause last;         // by their numbers
    const char* words;  // what is said, where the cause alone does not tell
    const char* meaning;
    const char* reasons;  // the commonest in practice
    Repeat repeat = Repeat::NothingSent;
};

// In the order of a message's way.
std::span<const Explanation> explanations();

// A finding as this row describes it.
Finding exampleOf(const Explanation& row);
// The document: docs/errors.md up to what is added by hand.
std::string referenceText();

}  // namespace tv::advice
