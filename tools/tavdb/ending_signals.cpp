// SPDX-License-Identifier: Apache-2.0
#include "ending_signals.h"

namespace tavdb::command {

namespace {

volatile std::sig_atomic_t endingSignal = 0;

extern "C" void noteSignal(int number) {
    endingSignal = number;
}

}  // namespace

bool isEnding() {
    return endingSignal != 0;
}

EndingSignals::EndingSignals(Second second) {
    struct sigaction noting = {};
    noting.sa_handler = noteSignal;
    noting.sa_flags = second == Second::ends ? static_cast<int>(SA_RESETHAND) : 0;
    for (size_t i = 0; i < kNumbers.size(); i++) {
        sigaction(kNumbers[i], nullptr, &before[i]);
        // A signal that is ignored, by nohup for one, stays so.
        if (before[i].sa_handler != SIG_IGN)
            sigaction(kNumbers[i], &noting, nullptr);
    }
}

EndingSignals::~EndingSignals() {
    for (size_t i = 0; i < kNumbers.size(); i++)
        sigaction(kNumbers[i], &before[i], nullptr);
    if (endingSignal != 0)
        raise(endingSignal);
}

}  // namespace tavdb::command
