// What every check of this program goes through, and its conversation with the script that runs it.
#pragma once

#include "platform/platform.h"

#include <functional>
#include <string>

// Says what was wanted and what was seen where they differ; the program then ends in failure.
void Expect(const std::string& what, const std::string& wanted, const std::string& seen);
void Expect(const std::string& what, long wanted, long seen);
void Expect(const std::string& what, bool holds);
int Failures();

// Waits until the condition holds; false, noted as a failure, when it does not within one and a half minutes.
bool WaitFor(const std::string& what, const std::function<bool()>& condition);

// Asks the script for something and waits until it has done it. Its answer, "ok" when it could.
void Ask(const std::string& request);
