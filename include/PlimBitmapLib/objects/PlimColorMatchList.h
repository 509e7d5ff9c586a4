/* PlimColorMatchList: a PlimCFColorMatchList that callers fill; the list itself stays inside. */
#ifndef PLIM_OBJECTS_PLIMCOLORMATCHLIST_H
#define PLIM_OBJECTS_PLIMCOLORMATCHLIST_H

#import <Foundation/NSObject.h>
#include <PlimBitmapLib/PlimBitmapLib.h>

@interface PlimColorMatchList : NSObject
{
    PlimCFColorMatchList mList;
}

- (id)initWithOptions:(int)options replacementComponentCount:(UInt32)count;
/* The entry is copied. */
- (void)addEntry:(const PlimColorMatchEntry *)entry;

@end

#endif
