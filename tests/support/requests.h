// For the tests of requests: situations of calls in words, and what the set is told to press.
#pragma once

#include "config/settings.h"
#include "link/link_layer.h"
#include "support/queue.h"
#include "support/tracked.h"

#include <functional>
#include <map>

constexpr LONG WRONG_STATE = static_cast<LONG>(LINEERR_INVALCALLSTATE),
               FAILED = static_cast<LONG>(LINEERR_OPERATIONFAILED),
               UNAVAILABLE = static_cast<LONG>(LINEERR_OPERATIONUNAVAIL);
constexpr const char *RELEASE = "03 26 20 29 8E", *SOFT1 = "03 26 20 1D 9A", *SOFT2 = "03 26 20 1E 99";

// Takes what is queued for the card: each frame in hexadecimal, " | " between them.
inline std::string Pressed() {
    return Joined(QueuedFrames(), " | ");
}

class Requests : public TrackedSet {
protected:
    struct Row {
        std::string situation;  // as Stand takes it
        LONG result;
        std::string pressed, steps;
    };
    // Calls 0, 1, ... each as its key and the state's letter (Named), '-' behind one without direction: "1C 1H-" is a double
    // call on key 1. The first one's key is active; "@2" makes it key 2. "h1" last held call, "p1" second party of the
    // conference, "b0" broken conference.
    void Stand(const std::string& situation, std::string softKeys) {
        Fresh();
        Key(5, TOUCH_NONE);
        Key(6, TOUCH_NONE);
        std::istringstream words(situation);
        for (std::string word; words >> word;) {
            if (word[0] > '9' || word[0] == '@') {
                const int value = std::stoi(word.substr(1));
                (word[0] == '@'   ? Tracking.ActivCallTouch
                 : word[0] == 'h' ? LastHeldCref
                 : word[0] == 'p' ? Tracking.ConfParty2
                                  : Tracking.ConfBroken) = value;
                continue;
            }
            std::size_t digits = 0;
            const int key = std::stoi(word, &digits);
            const bool second = At(key).calls[0] != -1;
            const int cref = Call(key, second ? 1 : 0, Named(word[digits]));
            Tracking.DbCall |= second;
            if (word.back() == '-')
                Undirected(cref);
            if (cref == 0)
                Active(key);
        }
        softKeys.resize(DISPLAY_COLUMNS, ' ');
        CopyText(::Display.Lines[1], softKeys.c_str());  // shown, not interpreted
        ProviderState.PendingRequestID = 9;
    }
    // What a row's steps end in is compared.
    void Check(const std::function<LONG()>& request, const std::vector<Row>& rows, const std::string& softKeys = "") {
        for (const Row& row : rows) {
            Stand(row.situation, softKeys);
            EXPECT_EQ(request(), row.result) << row.situation;
            EXPECT_EQ(Pressed(), row.pressed) << row.situation;
            const std::string steps = Steps();
            EXPECT_THAT(steps, testing::EndsWith(row.steps)) << row.situation;
            EXPECT_EQ(steps.empty(), row.steps.empty()) << steps;
        }
    }
};
