// QuickLookThumbnailing.h - the thumbnail extension classes our provider uses, declared as
// Apple's SDK declares them, for the Linux syntax check only (syntax-check.sh). Never used by a
// build.
#pragma once

#import <CoreGraphics/CoreGraphics.h>
#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

@interface QLFileThumbnailRequest : NSObject
@property(nonatomic, readonly) CGSize maximumSize;
@property(nonatomic, readonly) CGFloat scale;
@property(nonatomic, copy, readonly) NSURL* fileURL;
@end

@interface QLThumbnailReply : NSObject
+ (instancetype)replyWithContextSize:(CGSize)contextSize
                        drawingBlock:(BOOL (^)(CGContextRef context))drawingBlock;
@end

@interface QLThumbnailProvider : NSObject
- (void)provideThumbnailForFileRequest:(QLFileThumbnailRequest*)request
                     completionHandler:(void (^)(QLThumbnailReply* _Nullable reply,
                                                 NSError* _Nullable error))handler;
@end

NS_ASSUME_NONNULL_END
