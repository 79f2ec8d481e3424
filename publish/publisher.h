// Publishes the service's state where any program can read it without waiting for the service: in a
// volatile key of the registry, as one value, so that a reader sees one state whole.
//
// The thread that has changed something publishes it, after its Activity. While one thread does so,
// others leave it to publish theirs, too: none waits. What cannot be published is logged once, and
// holds nothing up. docs/holvctl.md describes the value.
#pragma once

// Begins with the state as it is. Called before the state machine's thread is started.
void StartPublishing();

// Publishes that the service has stopped. Called after the threads that change something have
// ended.
void EndPublishing();
