#pragma once

#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

typedef void (^TarnXPCDataReply)(NSData *_Nullable record);
typedef void (^TarnXPCTextReply)(NSString *_Nullable text);

/// TarnXPCProtocol.h as the system sends it: the same methods in the same order. What is nullable is what
/// another process could leave out.
@protocol TarnXPCProtocol

- (void)statusWithReply:(TarnXPCDataReply)reply;
- (void)pauseWithSeconds:(double)seconds
           authorization:(NSData *_Nullable)authorization
                   reply:(TarnXPCDataReply)reply;
- (void)resumeWithReply:(TarnXPCDataReply)reply;
- (void)diagnosticsWithReply:(TarnXPCTextReply)reply;
- (void)setTetheringWhileWiredWithAllow:(BOOL)allow reply:(TarnXPCDataReply)reply;
- (void)setTetheringDNSFixWithEnabled:(BOOL)enabled reply:(TarnXPCDataReply)reply;
- (void)installUpdateWithPkgPath:(NSString *_Nullable)pkgPath reply:(TarnXPCDataReply)reply;
- (void)installVerifiedUpdateWithPkgPath:(NSString *_Nullable)pkgPath
                                manifest:(NSData *_Nullable)manifest
                               signature:(NSString *_Nullable)signature
                                   reply:(TarnXPCDataReply)reply;
- (void)updateStatusWithReply:(TarnXPCDataReply)reply;

@end

namespace tarn {

/// The protocol as a connection takes it. Only data, strings and numbers cross, so that the classes which
/// the system allows without being told are enough.
inline NSXPCInterface *makeTarnXPCInterface() {
    return [NSXPCInterface interfaceWithProtocol:@protocol(TarnXPCProtocol)];
}

} // namespace tarn

NS_ASSUME_NONNULL_END
