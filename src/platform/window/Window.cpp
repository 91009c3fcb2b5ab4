#include "platform/window/Window.h"
