#pragma once

// Picks this system's backends for the shared services. Called once at start-up, before any
// service is used, by the tray program and the command line alike.
void installSystemBackends();
