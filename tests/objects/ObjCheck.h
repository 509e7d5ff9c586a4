/* A small check harness for the Objective-C suites: failed checks are counted and printed, and
   PLIM_TEST_MAIN returns non-zero when any failed. */
#ifndef PLIM_OBJCHECK_H
#define PLIM_OBJCHECK_H

#import <Foundation/Foundation.h>

extern int gCheckFailures;

#define CHECK(cond)                                                                         \
    do {                                                                                    \
        if (!(cond)) {                                                                      \
            fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond);        \
            ++gCheckFailures;                                                               \
        }                                                                                   \
    } while (0)

/* Runs `statement`, which must raise `name` with exactly `reason`. */
#define CHECK_RAISES(statement, name, reason) CHECK_RAISES_(statement, name, reason, nil)

/* A failed argument check: NSAssertionHandler raises NSInternalInconsistencyException with
   "<module>:<line>  Assertion failed in ...  Invalid parameter not satisfying: <condition>". */
#define CHECK_ASSERTS(statement, module, condition)                                         \
    CHECK_RAISES_(statement, NSInternalInconsistencyException, [module stringByAppendingString:@":"], \
                  [@".  Invalid parameter not satisfying: " stringByAppendingString:condition])

#define CHECK_RAISES_(statement, name, reasonOrPrefix, suffix)                               \
    do {                                                                                    \
        NSException *caught_ = nil;                                                         \
        @try {                                                                              \
            statement;                                                                      \
        } @catch (NSException *e) {                                                         \
            caught_ = [e retain];                                                           \
        }                                                                                   \
        CheckException(caught_, name, reasonOrPrefix, suffix, __FILE__, __LINE__, #statement); \
        [caught_ release];                                                                  \
    } while (0)

/* With a nil `suffix` the reason must equal `reasonOrPrefix`; otherwise it must start with it
   and end with `suffix`. */
void CheckException(NSException *caught, NSString *name, NSString *reasonOrPrefix, NSString *suffix,
                    const char *file, int line, const char *statement);

#define RUN(test)                                                                           \
    do {                                                                                    \
        NSAutoreleasePool *pool_ = [NSAutoreleasePool new];                                 \
        test();                                                                             \
        [pool_ release];                                                                    \
    } while (0)

#endif
