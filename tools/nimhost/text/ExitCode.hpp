#pragma once

namespace Zel::Tools::Nimhost {

// nimhost's exit codes, as scripts and the end-to-end tests rely on them.
enum ExitCode : int {
    Success = 0,
    // A module operation failed; its exception's type and message are on
    // standard error.
    OperationFailed = 1,
    // Bad command line or settings file; the message names file, line and key.
    UsageFailed = 2,
};

} // namespace Zel::Tools::Nimhost
