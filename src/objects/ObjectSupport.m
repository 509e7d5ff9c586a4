#import "ObjectSupport.h"

void PlimObjectsFailCheck(id object, SEL method, const char *module, int line, const char *condition) {
    [[NSAssertionHandler currentHandler] handleFailureInMethod:method
                                                        object:object
                                                          file:[NSString stringWithCString:module]
                                                    lineNumber:line
                                                   description:@"Invalid parameter not satisfying: %s", condition];
}

CFStringRef PlimCreateCFString(NSString *string) {
    if (string == nil) return NULL;
    return CFStringCreateWithCString(kCFAllocatorDefault, [string UTF8String], kCFStringEncodingUTF8);
}

CFURLRef PlimCreateCFURL(NSURL *url) {
    if (url == nil || ![url isFileURL]) return NULL;
    const char *path = [[url path] fileSystemRepresentation];
    if (path == NULL) return NULL;
    return CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, (const UInt8 *)path,
                                                   (CFIndex)strlen(path), false);
}

CFDataRef PlimCreateCFData(NSData *data) {
    if (data == nil) return NULL;
    return CFDataCreate(kCFAllocatorDefault, (const UInt8 *)[data bytes], (CFIndex)[data length]);
}

NSData *PlimNewNSData(CFDataRef data) {
    if (data == NULL) return nil;
    return [[NSData alloc] initWithBytes:CFDataGetBytePtr(data) length:(NSUInteger)CFDataGetLength(data)];
}

NSString *PlimNewNSString(CFStringRef string) {
    if (string == NULL) return nil;
    const char *direct = CFStringGetCStringPtr(string, kCFStringEncodingUTF8);
    if (direct != NULL) return [[NSString alloc] initWithUTF8String:direct];
    CFIndex size = CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8) + 1;
    char *buffer = (char *)malloc((size_t)size);
    if (buffer == NULL) return nil;
    NSString *result = nil;
    if (CFStringGetCString(string, buffer, size, kCFStringEncodingUTF8))
        result = [[NSString alloc] initWithUTF8String:buffer];
    free(buffer);
    return result;
}
