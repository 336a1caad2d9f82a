// The rolling backup of the system log's rotated application-log files.
#pragma once

/// Starts the backup thread, which waits a minute, then makes a first backup and an hourly timer where the product
/// switches the backup on. Call once, at start.
void InspectBackupWylogInit();
