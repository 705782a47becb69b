#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <utility>

#include "Player/Export.h"
#include "Player/IPreloader.h"
#include "Player/StorageId.h"
#include "Player/TrackId.h"
#include "logging/ILogger.h"
#include "qel/Elements.h"
#include "qel/Parameters.h"

namespace Moravel::Player {

// Reads compressed samples from storage servers, one framework storage source for each server.
//
// All operations may be called from any thread. One lock is held for the whole of each but
// InitSource and SetExistingCacheUpdateQueues, framework calls and delivery included: orders are
// served one after the other, across all servers. A host that wants a slow server to hold up
// nobody else gives each server a preloader of its own.
class MORAVEL_PLAYER_API QELPreloader : public IPreloader {
 public:
  QELPreloader();
  ~QELPreloader() override;

  // ERROR: the queue is null or not live, no source is registered for the server, or the source
  // refused the track (a log line says which). Other failures of the framework, the host or an
  // allocation leave as exceptions. Afterwards the preloader is ready for the next order.
  // A sample that no queue accepted is destroyed.
  PreloadResult Preload(const PreloadOrder& order) override;

  // Not ordered against running orders: each sees either the old or the new registry. The old one
  // must outlive the orders that run.
  void SetExistingCacheUpdateQueues(ExistingCacheUpdateQueues* queues) override;

  // Registers a server's source; a server that has one keeps it. An empty handle is a
  // QELRuntimeError and changes nothing.
  void SetStorageSource(StorageId id, qel::MediaSourcePtr source, qel::SourceControlPtr control);
  // True when there was one. An element whose last handle this was is destroyed here, while orders
  // for other servers already go on.
  bool RemoveStorageSource(const StorageId& id);

  // Builds the storage source of the track's server, set to that track. Touches no preloader.
  // Throws what the framework throws; then both out-parameters are untouched, unless it is the
  // configuration of the new element that failed.
  static void InitSource(qel::MediaSourcePtr& source, qel::SourceControlPtr& control,
                         const TrackId& trackId);

  // Tells the server's source, if there is one, that the track is gone. Framework errors pass.
  void RemoveTrackId(const TrackId& trackId);

 private:
  using Source = std::pair<qel::MediaSourcePtr, qel::SourceControlPtr>;

  // The steps of Preload; sourcesAccess_ is held.
  bool SelectTrack(const Source& source, const TrackId& trackId);
  void Seek(const Source& source, const PreloadOrder& order);
  // True when the queue took the output, and with it the sample.
  bool Deliver(const Output& output, CacheUpdateQueue* queue, ExistingCacheUpdateQueues* queues);

  std::map<StorageId, Source> sources_;
  std::mutex sourcesAccess_;  // guards sources_ and updateConfigInstance_, serialises all orders
  std::atomic<ExistingCacheUpdateQueues*> queues_;  // not owned, read once per order
  // One for all orders; empty when the framework has no storage source.
  qel::ParametersCollectionInstancePtr updateConfigInstance_;
  orl::mv::logging::ILogger* logger_;  // the host's, may be null
};

}  // namespace Moravel::Player
