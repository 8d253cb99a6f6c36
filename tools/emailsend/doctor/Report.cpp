// Lines, JSON, and which step the last sentence is about.
#include "emailsend/doctor/Report.h"

#include <algorithm>
#include <map>

#include "advice/Advice.h"
#include "base/Ascii.h"
#include "base/CodePage.h"
#include "emailsend/ExitCodes.h"
#include "emailsend/Process.h"

namespace emailsend::doctor {
namespace {

using tv::advice::Finding;

// More than any sentence of ours has.
constexpr size_t kMostShown = 1000;
constexpr std::string_view kStates[] = {"ok", "warning", "failure"};

std::string_view stateName(State state) {
    return kStates[static_cast<size_t>(state)];
}

std::string padded(std::string_view text, size_t width) {
    return std::string(text) + std::string(width - std::min(width, text.size()), ' ');
}

std::string lineOf(const Step& step) {
    constexpr size_t kStateWidth = 7, kTimeWidth = 6;
    const std::string ms = std::to_string(step.ms);
    std::string line = padded(stateName(step.state), kStateWidth) +
                       std::string(kTimeWidth - std::min(kTimeWidth, ms.size()), ' ') + ms +
                       " ms  " + step.name;
    if (step.port != 0) line += " at " + std::to_string(step.port);
    line += ": " + step.found + '.';
    if (!step.change.empty()) line += " -> " + step.change;
    return line + '\n';
}

// Without what stands in the way of an end with a full stop.
std::string clause(std::string_view words) {
    return std::string(words.substr(0, words.find_last_not_of(". ") + 1));
}

std::string sentenceOf(const Step& step) {
    std::string sentence = step.found + '.';
    const bool isLocal = step.finding.stage == tv::Stage::Local;
    if (step.state == State::Warning) {
        sentence = "Mail can go out, but look at the " + step.name + ": " + sentence;
    } else if (step.saysAll || isLocal) {
        sentence.front() = tv::asciiUpper(sentence.front());
    } else {
        sentence = std::string(tv::advice::stageWords(step.finding.stage)) + " failed: " + sentence;
    }
    return step.change.empty() ? sentence : sentence + ' ' + step.change;
}

// RFC 8259 section 7; text is harmless.
std::string jsonText(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + '"';
}

std::string jsonOf(const Step& step) {
    std::string out = "{\"step\": " + jsonText(step.name);
    if (step.port != 0) out += ", \"port\": " + std::to_string(step.port);
    return out + ", \"state\": " + jsonText(stateName(step.state)) +
           ", \"ms\": " + std::to_string(step.ms) + ", \"found\": " + jsonText(step.found) +
           ", \"change\": " + jsonText(step.change) + "}";
}

}  // namespace

std::string harmless(std::string_view text) {
    const bool isUtf8 = tv::isValidUtf8(text);
    const bool isCut = text.size() > kMostShown;
    std::string out;
    for (text = text.substr(0, kMostShown); !text.empty();) {
        const size_t skipped = tv::advice::obeyedByTerminals(text);
        const bool isForeign = !isUtf8 && static_cast<unsigned char>(text.front()) > 0x7F;
        out += skipped > 0 ? ' ' : isForeign ? '?' : text.front();
        text.remove_prefix(std::min(std::max<size_t>(skipped, 1), text.size()));
    }
    // Not within a character.
    while (isCut && !tv::isValidUtf8(out)) {
        out.pop_back();
    }
    return out;
}

Step failed(std::string name, int32_t port, uint64_t ms, const tv::Failure& failure,
            bool loggedIn) {
    Step step{std::move(name),
              port,
              ms,
              {},
              {},
              State::Failure,
              tv::advice::findingOf(failure, loggedIn)};
    step.found = step.finding.words;
    step.change = tv::advice::whatToChange(tv::advice::adviceOn(step.finding), true);
    return step;
}

void Report::add(Step step) {
    step.found = clause(harmless(step.found));
    step.change = harmless(step.change);
    steps_.push_back(std::move(step));
    if (!json_) printOut(lineOf(steps_.back()));
}

void Report::settle(std::string_view name, int32_t port, const std::string& done) {
    for (Step& step : steps_) {
        const bool isMeant = step.name == name && step.port == port;
        if (isMeant && step.state == State::Warning) step.change = done;
    }
}

// Where no endpoint serves, the one that came farthest says most.
int32_t Report::farthest() const {
    std::map<int32_t, size_t> steps;
    int32_t found = 0;
    for (const Step& step : steps_) {
        if (step.port != 0 && ++steps[step.port] > steps[found]) found = step.port;
    }
    return found;
}

// The first failure, or else the first warning.
const Step* Report::worst(int32_t port) const {
    const Step* found = nullptr;
    for (const Step& step : steps_) {
        if (step.port != 0 && step.port != port) continue;
        if (step.state > (found ? found->state : State::Ok)) found = &step;
    }
    return found;
}

int Report::finish(const std::string& good, int32_t port) {
    const Step* step = worst(port != 0 ? port : farthest());
    const std::string sentence = step ? sentenceOf(*step) : good;
    const bool isFailure = step && step->state == State::Failure;
    const int code = isFailure ? exitCodeOf(step->finding) : kAccepted;
    if (!json_) {
        printOut('\n' + sentence + '\n');
        return code;
    }
    std::string all;
    for (const Step& one : steps_) {
        all += (all.empty() ? "\n  " : ",\n  ") + jsonOf(one);
    }
    printOut("{\"steps\": [" + all + "],\n \"sentence\": " + jsonText(sentence) +
             ",\n \"exitCode\": " + std::to_string(code) + "}\n");
    return code;
}

}  // namespace emailsend::doctor
