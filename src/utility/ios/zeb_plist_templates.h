// The XML prologues of the messages the worker writes by hand. The parser
// takes every form; the text is re-encoded as a binary property list before
// it goes to the device.
#pragma once

#define ZEB_PLIST_DTD "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\""

#define ZEB_PLIST_PLAIN                                                                                   \
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?><!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" " \
    ZEB_PLIST_DTD "><plist version=\"1.0\">"

#define ZEB_PLIST_PLAIN_OLD_OWNER                                                                                  \
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?><!DOCTYPE plist PUBLIC \"-//Apple Computer//DTD PLIST 1.0//EN\" " \
    ZEB_PLIST_DTD "><plist version=\"1.0\">"

#define ZEB_PLIST_END "</plist>"
