#import <PlimBitmapLib/objects/PlimColorMatchList.h>

#import "ObjectSupport.h"

#define MODULE "PlimColorMatchList"

@implementation PlimColorMatchList

- (id)initWithOptions:(int)options replacementComponentCount:(UInt32)count {
    self = [super init];
    if (self == nil) return nil;
    PLIM_INIT_CHECK(MODULE, count != 0, "count != 0");
    mList = PlimCFColorMatchListCreate(kCFAllocatorDefault, (UInt32)options, count);
    PLIM_INIT_CHECK(MODULE, mList != NULL, "mList != NULL");
    return self;
}

- (void)dealloc {
    if (mList != NULL) CFRelease(mList);
    mList = NULL;
    [super dealloc];
}

- (void)addEntry:(const PlimColorMatchEntry *)entry {
    PLIM_CHECK(MODULE, entry != NULL, "entry != nil");
    (void)PlimCFColorMatchListAddEntry(mList, entry);
}

@end
