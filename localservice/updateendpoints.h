#pragma once

#include "localservice/httpexchange.h"

#include <QByteArray>
#include <QString>

#include <memory>

namespace sorv::local {

class Router;
class ServiceState;

// /updates/appcast.xml: a Sparkle appcast with one item, the version the
// service was started with, whose enclosure (/updates/files/{name}, a small
// text file standing in for a release) is signed with Ed25519, so that the
// application's update checker can be tried against this service.
class UpdateEndpoints {
public:
    static inline const QString kAppcastPath = QStringLiteral("/updates/appcast.xml");

    explicit UpdateEndpoints(ServiceState& state);
    ~UpdateEndpoints();
    UpdateEndpoints(const UpdateEndpoints&) = delete;
    UpdateEndpoints& operator=(const UpdateEndpoints&) = delete;

    void addRoutes(Router& router);
    // Reads the signing key (the options' PEM file, else the data directory's,
    // made on the first start) and signs the enclosure. False with the reason
    // when the key cannot be read or made.
    bool open(QString* error);

    // After open(): the public key (base64 of its 32 bytes) and the version offered.
    QString publicKeyBase64() const;
    QString version() const;

private:
    ServiceResponse appcast(const ServiceRequest& request) const;
    ServiceResponse enclosure(const ServiceRequest& request) const;

    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace sorv::local
