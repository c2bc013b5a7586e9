// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace tolva {

/// Runs the preview extension as a command: one request for each file named in `arguments`, the replies' bytes on
/// standard output, one line end behind each and an empty line between two; an error on standard error as
/// "tolva-quicklook: NAME: TEXT". A single "--help" or "--version" is answered; any other name is a file's, a leading
/// dash or not. Gives the exit status: 0, or 1 if any file failed, none was named or the output could not be written.
int extensionMain(int count, char** arguments);

}  // namespace tolva
