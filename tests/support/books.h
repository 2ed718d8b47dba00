// What the application may believe of its calls and requests, kept from the events as text, and whether it is true: no
// event of a call that is none, no request without its one completion, every call over or alive on the set, every other
// record free.
//
//     Books books;
//     books.Asked(7);                                  // before the entry point is called
//     books.Answered(7, TSPI_lineMakeCall(7, ...));    // behind it
//     books.Given(cref, 7);                            // when it gave the application a call
//     books.Take(Events());                            // as often as wanted, in order, those of the request now
//     EXPECT_EQ(books.Balance(machine), "");           // when line and set have come to rest
#pragma once

#include "equipment/equipment.h"
#include "platform/platform.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

class Books {
public:
    void Asked(DRV_REQUESTID request);
    void Answered(DRV_REQUESTID request, LONG result);
    // A made call, a consultation call or the conference. It lives unless the request fails.
    void Given(int cref, DRV_REQUESTID request);
    void Take(const std::vector<std::string>& events);

    // The state last reported: "" for a call without one yet, nothing for no call.
    std::optional<std::string> State(int cref) const;
    std::vector<int> Alive() const;                  // the conference included
    std::vector<DRV_REQUESTID> Uncompleted() const;  // accepted, and not completed yet
    // What was wrong with the events so far, "" when nothing was. Holds at any moment.
    std::string Faults() const;
    // Faults, and what does not agree with the set and with the provider's records. Holds when nothing is under way:
    // no byte on the line, no caller waited for, no request running. `states`: the calls' states are compared too, not
    // only on which keys they stand.
    std::string Balance(const Equipment::Machine& machine, bool states = true) const;

private:
    struct Request {
        bool refused = false;           // by the entry point: no completion follows
        std::optional<bool> succeeded;  // the completion
    };
    std::map<DRV_REQUESTID, Request> requests;
    std::map<int, std::string> alive;
    std::map<int, DRV_REQUESTID> given;  // calls that end with their request's failure
    std::set<int> unoffered;             // announced, and never offered since
    std::string faults;

    void Fault(const std::string& text);
    void Complete(DRV_REQUESTID request, bool succeeded, const std::string& event);
    void Move(int cref, const std::string& state, const std::string& event);
};
