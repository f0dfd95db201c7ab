#pragma once

/// Marks what the shared library offers to its host; everything else stays inside.
#define CDS_API __attribute__((visibility("default")))
