#pragma once

/// Marks what the support library offers to the store and its host.
#define CP_API __attribute__((visibility("default")))
