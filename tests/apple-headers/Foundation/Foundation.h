// Foundation.h - GNUstep's Foundation, plus the declarations of Apple's SDK that GNUstep lacks
// and our Apple sources use, for the Linux syntax check only (syntax-check.sh). Never used by a
// build. Each declaration is copied from Apple's SDK headers (nullability left out); the rest
// of Foundation is GNUstep's own, found next on the include path.
#pragma once

#include_next <Foundation/Foundation.h>

// NSFileManager.h
typedef NS_OPTIONS(NSUInteger, NSFileManagerItemReplacementOptions) {
    NSFileManagerItemReplacementWithoutDeletingBackupItem = 1UL << 1,
};

@interface NSFileManager (GSAppleSDKDeclarations)
- (BOOL)replaceItemAtURL:(NSURL*)originalItemURL
           withItemAtURL:(NSURL*)newItemURL
          backupItemName:(NSString*)backupItemName
                 options:(NSFileManagerItemReplacementOptions)options
        resultingItemURL:(NSURL* __autoreleasing*)resultingURL
                   error:(NSError**)error;
@end

// NSURL.h
@interface NSURL (GSAppleSDKDeclarations)
- (BOOL)setResourceValues:(NSDictionary<NSString*, id>*)keyedValues error:(NSError**)error;
+ (NSData*)bookmarkDataWithContentsOfURL:(NSURL*)bookmarkFileURL error:(NSError**)error;
+ (instancetype)URLByResolvingBookmarkData:(NSData*)bookmarkData
                                   options:(NSURLBookmarkResolutionOptions)options
                             relativeToURL:(NSURL*)relativeURL
                       bookmarkDataIsStale:(BOOL*)isStale
                                     error:(NSError**)error;
@end
