// SPDX-License-Identifier: Apache-2.0
#include "extension/ExtensionHost.hpp"

int main(int count, char** arguments) { return tolva::extensionMain(count, arguments); }
