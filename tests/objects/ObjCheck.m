#import "ObjCheck.h"

int gCheckFailures = 0;

void CheckException(NSException *caught, NSString *name, NSString *reasonOrPrefix, NSString *suffix,
                    const char *file, int line, const char *statement) {
    if (caught == nil) {
        fprintf(stderr, "%s:%d: no exception from: %s\n", file, line, statement);
        ++gCheckFailures;
        return;
    }
    NSString *reason = [caught reason];
    BOOL reasonOK = suffix == nil ? [reason isEqualToString:reasonOrPrefix]
                                  : [reason hasPrefix:reasonOrPrefix] && [reason hasSuffix:suffix];
    if (![[caught name] isEqualToString:name] || !reasonOK) {
        fprintf(stderr, "%s:%d: %s raised %s \"%s\", expected %s \"%s...%s\"\n", file, line, statement,
                [[caught name] UTF8String], [reason UTF8String], [name UTF8String],
                [reasonOrPrefix UTF8String], suffix ? [suffix UTF8String] : "");
        ++gCheckFailures;
    }
}
