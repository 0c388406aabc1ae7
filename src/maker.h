// Who makes this build and where they are found. What ships the program sets these in CMake's cache
// (FERRODECK_MAKER and its kin); the defaults lead nowhere.

#pragma once

namespace maker {

extern const char* const kName;
extern const char* const kWebsite;  // addresses of pages, as are the downloads
extern const char* const kDownloads;
extern const char* const kContact;  // mail addresses
extern const char* const kBugAddress;

}  // namespace maker
