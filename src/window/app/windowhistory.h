#pragma once

class FlashHistory;

// The history the window's flashes are recorded in, opened at its first flash; none when
// it cannot be opened (a line in the log says why).
FlashHistory *windowHistory();
