#pragma once

// The window's side of the Secret Service provider: the question before one program reads
// an item another stored (Allow once, Always allow this program, Deny; Deny is the default
// and Escape denies), and the provider of the running program.

#include "secrets/SecretService.h"

#include <functional>

class QWidget;

// Shows the question (not blocking: the bus keeps being served); Done gets a SecretAnswer.
// Answers a function that closes the question unanswered.
std::function<void()> AskSecretRead(QWidget* Owner, const SecretReadAsk& Ask, std::function<void(int)> Done);

// The provider of the running program (null when none was made), for the options page.
SecretService* SecretProvider();
void SetSecretProvider(SecretService* Provider);
