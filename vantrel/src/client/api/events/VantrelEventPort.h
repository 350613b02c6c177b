#pragma once

/// Where events come in, as the connections see it that ask servers to send some there. Thread-safe.
class VantrelEventPort {
  public:
    /// The TCP port that servers connect to.
    virtual unsigned number() const = 0;
    /// Whether the calling thread is the one that events come in on: it must not wait for a server for long.
    virtual bool isOwnThread() const = 0;
    /// A connection has got handlers: its server is to be watched from now on.
    virtual void watchSoon() = 0;
    /// Events for the connection with this id are refused from now on.
    virtual void removeConnection(int id) = 0;

  protected:
    virtual ~VantrelEventPort() = default;
};
