#pragma once

/// Everything an application needs of ZaffoPlayback.
