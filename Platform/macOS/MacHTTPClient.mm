#include "Platform/macOS/MacHTTPClient.h"

#include "Platform/HTTP.h"
#include "Platform/macOS/FoundationText.h"

#import <Foundation/Foundation.h>
#import <Security/SecCertificate.h>
#import <Security/SecProtocolTypes.h>
#import <dispatch/dispatch.h>

#include <cstdint>
#include <map>
#include <utility>

namespace tarn {
namespace {

constexpr int mostRedirects = 5;

struct Fetch {
    std::function<bool(std::string_view)> received;
    std::function<void(HTTPSession::Result)> ended;
    int redirects = 0;
};

/// The fetches of one session that are under way. Main thread.
class Fetches {
public:
    /// Of a task, by its identifier; what never became a task has a number below zero.
    using Number = std::int64_t;

    Number addRefused(std::shared_ptr<Fetch> fetch) {
        open_.emplace(--lastRefused_, std::move(fetch));
        return lastRefused_;
    }
    void add(NSURLSessionTask *task, std::shared_ptr<Fetch> fetch) {
        open_.emplace(numberOf(task), std::move(fetch));
    }

    /// Null for one that has ended.
    std::shared_ptr<Fetch> find(NSURLSessionTask *task) const {
        const auto entry = open_.find(numberOf(task));
        return entry == open_.end() ? nullptr : entry->second;
    }

    /// The same for the last time.
    std::shared_ptr<Fetch> take(Number number) {
        auto node = open_.extract(number);
        return node ? std::move(node.mapped()) : nullptr;
    }
    std::shared_ptr<Fetch> take(NSURLSessionTask *task) { return take(numberOf(task)); }

    void clear() {
        // Emptied first: what a handler holds may ask for fetches in its destructor.
        const auto dropped = std::exchange(open_, {});
    }

private:
    static Number numberOf(NSURLSessionTask *task) { return static_cast<Number>(task.taskIdentifier); }

    std::map<Number, std::shared_ptr<Fetch>> open_;
    Number lastRefused_ = 0;
};

std::vector<std::string> peerCertificates(NSError *error) {
    std::vector<std::string> chain;
    // The system puts it there, and has no constant for it.
    id elements = error.userInfo[@"NSErrorPeerCertificateChainKey"];
    if (![elements isKindOfClass:[NSArray class]])
        return chain;
    for (id element in static_cast<NSArray *>(elements)) {
        if (CFGetTypeID((__bridge CFTypeRef)element) != SecCertificateGetTypeID())
            break;
        chain.push_back(
            bytesOf((__bridge_transfer NSData *)SecCertificateCopyData((__bridge SecCertificateRef)element)));
    }
    return chain;
}

HTTPError httpError(NSError *error) {
    return {utf8Text(error.domain), error.code, utf8Text(error.localizedDescription),
            peerCertificates(error)};
}

std::int64_t statusOf(NSURLResponse *_Nullable response) {
    if (![response isKindOfClass:[NSHTTPURLResponse class]])
        return 0;
    return static_cast<NSHTTPURLResponse *>(response).statusCode;
}

} // namespace
} // namespace tarn

/// Hands on what the system tells of a session's tasks. A handler may destroy the session, so every method
/// holds the fetches itself.
@interface TarnSessionDelegate : NSObject <NSURLSessionDataDelegate>
- (instancetype)initWithFetches:(std::shared_ptr<tarn::Fetches>)fetches;
@end

@implementation TarnSessionDelegate {
    std::shared_ptr<tarn::Fetches> _fetches;
}

- (instancetype)initWithFetches:(std::shared_ptr<tarn::Fetches>)fetches {
    self = [super init];
    if (self)
        _fetches = std::move(fetches);
    return self;
}

- (void)URLSession:(NSURLSession *)session
          dataTask:(NSURLSessionDataTask *)task
    didReceiveData:(NSData *)data {
    const auto fetches = _fetches;
    const auto fetch = fetches->find(task);
    if (!fetch)
        return;
    __block bool wanted = true;
    [data enumerateByteRangesUsingBlock:^(const void *bytes, NSRange range, BOOL *stop) {
        wanted = fetch->received({static_cast<const char *>(bytes), range.length}) && fetches->find(task);
        *stop = !wanted;
    }];
    if (!wanted) {
        fetches->take(task);
        [task cancel];
    }
}

- (void)URLSession:(NSURLSession *)session
                    task:(NSURLSessionTask *)task
    didCompleteWithError:(NSError *_Nullable)error {
    const auto fetch = _fetches->take(task);
    if (!fetch)
        return;
    if (error)
        fetch->ended(tarn::httpError(error));
    else
        fetch->ended(tarn::statusOf(task.response));
}

- (void)URLSession:(NSURLSession *)session
                          task:(NSURLSessionTask *)task
    willPerformHTTPRedirection:(NSHTTPURLResponse *)response
                    newRequest:(NSURLRequest *)request
             completionHandler:(void (^)(NSURLRequest *_Nullable))completionHandler {
    const auto fetch = _fetches->find(task);
    const bool followed =
        fetch && [request.URL.scheme isEqualToString:@"https"] && ++fetch->redirects <= tarn::mostRedirects;
    // Without a request the redirect itself is the response.
    completionHandler(followed ? request : nil);
}

- (void)URLSession:(NSURLSession *)session
                   task:(NSURLSessionTask *)task
    didReceiveChallenge:(NSURLAuthenticationChallenge *)challenge
      completionHandler:
          (void (^)(NSURLSessionAuthChallengeDisposition, NSURLCredential *_Nullable))completionHandler {
    // The one about the server's certificate is the system's to answer. Every other one asks for
    // credentials, which the keychain might have.
    NSString *method = challenge.protectionSpace.authenticationMethod;
    completionHandler([method isEqualToString:NSURLAuthenticationMethodServerTrust]
                          ? NSURLSessionAuthChallengePerformDefaultHandling
                          : NSURLSessionAuthChallengeRejectProtectionSpace,
                      nil);
}

@end

namespace tarn {
namespace {

NSURLSessionConfiguration *_Nonnull makeConfiguration(double timeout) {
    NSURLSessionConfiguration *configuration = NSURLSessionConfiguration.ephemeralSessionConfiguration;
    // Begins anew with every piece.
    [configuration setTimeoutIntervalForRequest:timeout];
    [configuration setRequestCachePolicy:NSURLRequestReloadIgnoringLocalAndRemoteCacheData];
    [configuration setURLCache:nil];
    [configuration setHTTPShouldSetCookies:NO];
    [configuration setHTTPCookieAcceptPolicy:NSHTTPCookieAcceptPolicyNever];
    [configuration setHTTPCookieStorage:nil];
    [configuration setURLCredentialStorage:nil];
    // What asks for this in an application may not hold for a program without a bundle.
    [configuration setValue:@(tls_protocol_version_TLSv12) forKey:@"TLSMinimumSupportedProtocolVersion"];
    // The system would unpack a compressed body, and sizes count the bytes as they come.
    [configuration setHTTPAdditionalHeaders:@{@"Accept-Encoding" : @"identity"}];
    return configuration;
}

class MacHTTPSession final : public HTTPSession {
public:
    explicit MacHTTPSession(double timeout) : fetches_(std::make_shared<Fetches>()) {
        TarnSessionDelegate *delegate = [[TarnSessionDelegate alloc] initWithFetches:fetches_];
        session_ = [NSURLSession sessionWithConfiguration:makeConfiguration(timeout)
                                                 delegate:delegate
                                            delegateQueue:NSOperationQueue.mainQueue];
    }
    MacHTTPSession(const MacHTTPSession &) = delete;
    MacHTTPSession &operator=(const MacHTTPSession &) = delete;

    ~MacHTTPSession() override {
        fetches_->clear();
        // Until then the session keeps itself and the delegate.
        [session_ invalidateAndCancel];
    }

    void get(const URL &url, std::function<bool(std::string_view)> received,
             std::function<void(Result)> ended) override {
        @autoreleasepool {
            auto fetch = std::make_shared<Fetch>(Fetch{std::move(received), std::move(ended)});
            NSString *text = makeNSString(url.absoluteString());
            NSURL *address = text ? [NSURL URLWithString:text] : nil;
            if (!address || url.scheme() != "https") {
                refuse(std::move(fetch));
                return;
            }
            // From an address and not a request, which would bring limits of its own.
            NSURLSessionDataTask *task = [session_ dataTaskWithURL:address];
            fetches_->add(task, std::move(fetch));
            [task resume];
        }
    }

private:
    void refuse(std::shared_ptr<Fetch> fetch) {
        const auto fetches = fetches_;
        const auto number = fetches->addRefused(std::move(fetch));
        dispatch_async(dispatch_get_main_queue(), ^{
            const auto refused = fetches->take(number);
            if (refused)
                refused->ended(httpError([NSError errorWithDomain:NSURLErrorDomain
                                                             code:NSURLErrorUnsupportedURL
                                                         userInfo:nil]));
        });
    }

    const std::shared_ptr<Fetches> fetches_;
    NSURLSession *session_;
};

} // namespace

std::unique_ptr<HTTPSession> MacHTTPClient::ephemeral(double timeout) {
    @autoreleasepool {
        return std::make_unique<MacHTTPSession>(timeout);
    }
}

std::unique_ptr<HTTPClient> makeHTTPClient(Platform &) {
    return std::make_unique<MacHTTPClient>();
}

} // namespace tarn
