/* Shared by the Objective-C classes: argument checks and conversions between Foundation objects
   and the library's own CF objects (separate implementations, so nothing is toll-free). */
#ifndef PLIM_OBJECTS_SUPPORT_H
#define PLIM_OBJECTS_SUPPORT_H

#import <Foundation/Foundation.h>
#include <PlimBitmapLib/PlimBitmapLib.h>

/* Helpers shared by the classes stay inside the library; only the classes are its interface. */
#define PLIM_OBJECTS_INTERNAL __attribute__((visibility("hidden")))

/* Reports a failed check through the current assertion handler, which raises. `module` names
   the class; `condition` is the text shown after "Invalid parameter not satisfying: ". */
PLIM_OBJECTS_INTERNAL void PlimObjectsFailCheck(id object, SEL method, const char *module, int line, const char *condition);

/* Checks in ordinary methods. */
#define PLIM_CHECK(module, cond, text)                                             \
    do {                                                                           \
        if (!(cond)) PlimObjectsFailCheck(self, _cmd, module, __LINE__, text);     \
    } while (0)

/* Checks in initialisers: the receiver is handed to the autorelease pool before the handler
   raises, so a failed initialiser leaks nothing. */
#define PLIM_INIT_CHECK(module, cond, text)                                        \
    do {                                                                           \
        if (!(cond)) {                                                             \
            [self autorelease];                                                    \
            PlimObjectsFailCheck(self, _cmd, module, __LINE__, text);              \
        }                                                                          \
    } while (0)

/* New CF objects with one reference, or NULL for nil. A URL that does not name a file gives
   NULL (the library reads files only). */
PLIM_OBJECTS_INTERNAL CFStringRef PlimCreateCFString(NSString *string);
PLIM_OBJECTS_INTERNAL CFURLRef PlimCreateCFURL(NSURL *url);
PLIM_OBJECTS_INTERNAL CFDataRef PlimCreateCFData(NSData *data);
/* Copies; nil for NULL. The CF object is not released. */
PLIM_OBJECTS_INTERNAL NSData *PlimNewNSData(CFDataRef data); /* owned by the caller */
PLIM_OBJECTS_INTERNAL NSString *PlimNewNSString(CFStringRef string); /* owned by the caller */

#endif
