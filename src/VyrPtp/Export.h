// Marks the library's public interface: exported factories and entity types.
#pragma once

#define VYRPTP_EXPORT __attribute__((visibility("default")))
